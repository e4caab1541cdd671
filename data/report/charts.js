// ---- histogram

function drawHistogram() {
  const map = chosen;
  const {low, high, counts} = map.part.histogram;
  const [width, height, foot] = [640, 220, 30];
  const svg = at('histogram');
  svg.replaceChildren();
  svg.setAttribute('viewBox', `0 0 ${width} ${height}`);
  const top = Math.log1p(Math.max(...counts));
  const x = (value) => ((value - low) / (high - low)) * width;
  counts.forEach((count, i) => {
    const tall = (Math.log1p(count) / top) * (height - foot - 10);
    shape(svg, 'rect', {class: 'bar', x: (i * width) / counts.length, y: height - foot - tall,
                        width: width / counts.length, height: tall});
  });
  shape(svg, 'path', {class: 'axis', d: `M0 ${height - foot}H${width}`});
  const step = d3.tickStep(low / map.rms, high / map.rms, 8);
  for (const tick of d3.ticks(low / map.rms, high / map.rms, 8)) {
    const place = x(tick * map.rms);
    if (place < 10 || place > width - 10) continue;
    shape(svg, 'text', {x: place, y: height - foot + 14, 'text-anchor': 'middle'}, tick.toFixed(step < 1 ? 1 : 0));
  }
  shape(svg, 'text', {x: width / 2, y: height - 3, 'text-anchor': 'middle'},
        'density in rms about zero (count on a logarithmic scale)');
  shape(svg, 'path', {class: 'marker', id: 'marker'});
  markHistogram();
}

function markHistogram() {
  const {level, negative, rms, part} = chosen;
  const {low, high, counts} = part.histogram;
  const lines = negative ? [level, -level] : [level];
  const x = (value) => ((value - low) / (high - low)) * 640;
  at('marker').setAttribute('d', lines.map((l) => `M${x(l * rms)} 0V190`).join(''));
  const total = d3.sum(counts);
  const share = (pick) => (100 * d3.sum(counts, (count, i) =>
    pick(low + ((i + 0.5) * (high - low)) / counts.length) ? count : 0)) / total;
  at('above').textContent = `${share((v) => v > level * rms).toFixed(2)} % of the points lie above the level` +
    (negative ? `, ${share((v) => v < -level * rms).toFixed(2)} % below its negative.` : '.');
}

// ---- sections: contours of the density on a plane of grid points

const planes = {x: [1, 2, 3], y: [0, 2, 4], z: [0, 1, 5]};  // the two axes, and the angle between them

// The line of a ring as an SVG path, without what runs along the wall of the box.
function ringPath(ring, size, place) {
  let path = '';
  let drawing = false;
  for (let i = 1; i < ring.length; ++i) {
    const [a, b] = [ring[i - 1], ring[i]];
    const along = [0, 1].some((axis) => a[axis] === b[axis] && (a[axis] <= 0 || a[axis] >= size[axis]));
    if (along) drawing = false;
    else {
      if (!drawing) path += `M${place(a)}`;
      path += `L${place(b)}`;
      drawing = true;
    }
  }
  return path;
}

function drawContours(svg, values, size, place) {
  const contours = d3.contours().size(size);
  for (const sign of [1, -1]) {
    const signed = sign > 0 ? values : values.map((v) => -v);
    const highest = d3.max(signed);
    const step = chosen.level * chosen.rms;
    for (let n = 1; n <= 12 && n * step < highest; ++n) {
      const rings = contours.contour(signed, n * step).coordinates.flat();
      const path = rings.map((ring) => ringPath(ring, size, place)).join('');
      shape(svg, 'path', {class: sign > 0 ? 'contour' : 'contour minus', d: path,
                          'stroke-opacity': Math.min(1, 0.45 + 0.15 * n)});
    }
  }
}

// Where in the box of a density a place is, in grid points; the copy of it that lies there, if one does.
function inBox(density, xyz) {
  return cell.fractionalize(xyz).map((f, axis) => {
    const n = density.dim[axis];
    return (((f * n - density.starts[axis]) % n) + n) % n;
  });
}

function drawAtoms(svg, axis, height, density, place) {
  const [a, b] = planes[axis];
  const normal = axes.indexOf(axis);
  const {cell: edges, intervals} = chosen.info;
  for (const atom of report.model ? report.model.atoms : []) {
    const at = inBox(density, atom);
    if (at[a] >= density.counts[a] || at[b] >= density.counts[b]) continue;
    if (Math.abs(at[normal] - height) * edges[normal] > intervals[normal]) continue;
    const [x, y] = place([at[a] + 0.5, at[b] + 0.5]);
    shape(svg, 'circle', {class: 'atom', cx: x, cy: y, r: 2.5});
  }
}

// Ticks at round fractions of the cell along an edge of the section.
function drawTicks(svg, density, axis, size, place, along) {
  const n = density.dim[axis];
  const [low, high] = [density.starts[axis] / n, (density.starts[axis] + size) / n];
  for (const tick of d3.ticks(low, high, 6)) {
    const i = tick * n - density.starts[axis] + 0.5;
    if (i < 0 || i > size) continue;
    const [x, y] = place(along(i)).map(Number);
    const bottom = along(0)[1] === along(1)[1];
    shape(svg, 'path', {class: 'tick', d: bottom ? `M${x} ${y}v5` : `M${x} ${y}h-5`});
    shape(svg, 'text', bottom ? {x, y: y + 16, 'text-anchor': 'middle'} : {x: x - 7, y: y + 4, 'text-anchor': 'end'},
          String(Number(tick.toFixed(4))));
  }
}

function sectionValues(density, axis, height) {
  const [a, b] = planes[axis];
  const size = [density.counts[a], density.counts[b]];
  const values = new Array(size[0] * size[1]);
  const index = [0, 0, 0];
  index[axes.indexOf(axis)] = height;
  for (let j = 0; j < size[1]; ++j) {
    for (let i = 0; i < size[0]; ++i) {
      index[a] = i;
      index[b] = j;
      values[j * size[0] + i] = density.at(...index);
    }
  }
  return {size, values};
}

function drawSection() {
  const {density, info} = chosen;
  const axis = at('axis').value;
  const [a, b, angle] = planes[axis];
  const normal = axes.indexOf(axis);
  const height = Number(at('section').value);
  const {size, values} = sectionValues(density, axis, height);
  const gamma = (info.cell[angle] * Math.PI) / 180;
  const scaleA = info.cell[a] / info.intervals[a];
  const scaleB = info.cell[b] / info.intervals[b];
  const wide = size[0] * scaleA + size[1] * scaleB * Math.abs(Math.cos(gamma));
  const [left, top] = [44, 8];
  const unit = (640 - left - 14) / wide;
  const shift = Math.max(0, -size[1] * scaleB * Math.cos(gamma));
  const tall = size[1] * scaleB * Math.sin(gamma) * unit;
  const place = ([i, j]) => [((i * scaleA + j * scaleB * Math.cos(gamma) + shift) * unit + left).toFixed(1),
                             (tall - j * scaleB * Math.sin(gamma) * unit + top).toFixed(1)];
  const svg = at('contours');
  svg.replaceChildren();
  svg.setAttribute('viewBox', `0 0 640 ${(tall + top + 36).toFixed(1)}`);
  const corners = [[0, 0], [size[0], 0], size, [0, size[1]]].map(place);
  shape(svg, 'path', {class: 'axis', d: `M${corners.join('L')}Z`});
  drawContours(svg, values, size, place);
  drawAtoms(svg, axis, height, density, place);
  drawTicks(svg, density, a, size[0], place, (i) => [i, 0]);
  drawTicks(svg, density, b, size[1], place, (i) => [0, i]);
  shape(svg, 'text', {x: 320, y: tall + top + 32, 'text-anchor': 'middle'},
        `${axes[a]} to the right, ${(size[0] * scaleA).toFixed(1)} Å; ${axes[b]} upwards, ${(size[1] * scaleB).toFixed(1)} Å`);
  const point = height + density.starts[normal];
  at('section-text').textContent = `${axis} = ${(point / info.intervals[normal]).toFixed(3)} (point ${point} of ${info.intervals[normal]})`;
}

// The section through the place that is looked at, else through the middle.
function chooseSection() {
  const {density} = chosen;
  const normal = axes.indexOf(at('axis').value);
  const n = density.counts[normal];
  at('section').max = n - 1;
  const wanted = here ? Math.round(inBox(density, here)[normal]) : n;
  at('section').value = wanted < n ? wanted : Math.floor(n / 2);
  drawSection();
}

function showSections() {
  at('axis').addEventListener('change', chooseSection);
  at('section').addEventListener('input', drawSection);
  movers.push(chooseSection);
}

// ---- completeness

function drawCompleteness() {
  const {text, shells} = report.completeness;
  if (!shells.length) {
    at('completeness').remove();
    element(at('shells').parentNode, 'p', text);
    return;
  }
  const [width, height, foot] = [640, 180, 32];
  const svg = at('completeness');
  svg.setAttribute('viewBox', `0 0 ${width} ${height}`);
  const wide = width / shells.length;
  shells.forEach((shell, i) => {
    const tall = (shell.found / Math.max(1, shell.possible)) * (height - foot - 14);
    shape(svg, 'rect', {class: 'bar', x: i * wide + 1, y: height - foot - tall, width: wide - 2, height: tall});
    shape(svg, 'text', {x: (i + 0.5) * wide, y: height - foot + 13, 'text-anchor': 'middle'}, shell.high.toFixed(2));
    shape(svg, 'text', {x: (i + 0.5) * wide, y: height - foot - tall - 3, 'text-anchor': 'middle'},
          `${Math.round((100 * shell.found) / Math.max(1, shell.possible))}`);
  });
  shape(svg, 'path', {class: 'axis', d: `M0 ${height - foot}H${width}`});
  shape(svg, 'text', {x: width / 2, y: height - 4, 'text-anchor': 'middle'},
        'high-resolution limit of the shell in Å; per cent of its reflections');
  const head = element(at('shells'), 'tr');
  for (const name of ['shell, Å', 'found', 'possible', 'complete', 'rms amplitude']) element(head, 'th', name, {scope: 'col'});
  for (const shell of shells) {
    const line = element(at('shells'), 'tr');
    for (const text of [`${shell.low.toFixed(2)} – ${shell.high.toFixed(2)}`, shell.found, shell.possible,
                        `${((100 * shell.found) / Math.max(1, shell.possible)).toFixed(1)} %`,
                        shell.amplitude >= 100 ? Math.round(shell.amplitude) : shell.amplitude.toPrecision(3)]) element(line, 'td', text);
  }
  element(at('shells').parentNode.parentNode, 'p', text);
}
