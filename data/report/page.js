// The page that quorix report writes: everything it shows comes from the JSON in #report.
'use strict';

const report = JSON.parse(document.getElementById('report').textContent);
const at = (id) => document.getElementById(id);
const info = report.map;
const rms = info.statistics.recomputed.rms_about_zero || 1;

function element(parent, name, text) {
  const made = document.createElement(name);
  if (text !== undefined) made.textContent = text;
  return parent.appendChild(made);
}

function shape(parent, name, attributes, text) {
  const made = document.createElementNS('http://www.w3.org/2000/svg', name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  if (text !== undefined) made.textContent = text;
  return parent.appendChild(made);
}

const row = (table, heading, text) => {
  const made = element(table, 'tr');
  element(made, 'th', heading);
  element(made, 'td', text);
};

// ---- level: in rms about zero everywhere; what that is in e/A^3 depends on how the map was scaled

function electrons(level) {
  const value = level * rms;
  if (report.scale.factor === null) return `${value.toPrecision(3)} in the map's units`;
  return `${(value * report.scale.factor).toFixed(3)} e/Å³`;
}

const listeners = [];
let level = report.difference ? 3 : 1.5;
let negative = report.difference;

function setLevel(wanted) {
  level = Math.min(Math.max(wanted, Number(at('level').min)), Number(at('level').max));
  at('level').value = level;
  at('level-text').textContent = `${level.toFixed(2)} rms = ${electrons(level)}`;
  for (const listener of listeners) listener();
}

// ---- the density that the page holds

async function unpack(text) {
  const bytes = Uint8Array.from(atob(text), (c) => c.charCodeAt(0));
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream('gzip'));
  return new Uint8Array(await new Response(stream).arrayBuffer());
}

// A box of the periodic cell, x fastest; elsewhere what the symmetry gives, else zero.
class Density {
  constructor(box, bytes) {
    this.counts = box.counts;
    this.starts = box.starts;
    this.dim = info.intervals;
    this.step = box.step * rms;
    this.lowest = box.lowest * rms;
    this.bytes = bytes;
  }

  at(i, j, k) {
    const [nx, ny, nz] = this.counts;
    if (i < 0 || j < 0 || k < 0 || i >= nx || j >= ny || k >= nz) return 0;
    return this.lowest + this.step * this.bytes[(k * ny + j) * nx + i];
  }

  // Where in the box a point of the cell lies; null if outside.
  place(point) {
    const inside = point.map((index, axis) => {
      const n = this.dim[axis];
      return (((Math.round(index) - this.starts[axis]) % n) + n) % n;
    });
    return inside.every((index, axis) => index < this.counts[axis]) ? inside : null;
  }

  // What the viewer asks of its grid: indices of the cell.
  get_grid_value(i, j, k) {
    const own = this.place([i, j, k]);
    if (own) return this.at(...own);
    for (const m of report.operators) {
      const mate = this.place([0, 4, 8].map((r) => m[r] * i + m[r + 1] * j + m[r + 2] * k + m[r + 3]));
      if (mate) return this.at(...mate);
    }
    return 0;
  }

  grid2frac(i, j, k) {
    return [i / this.dim[0], j / this.dim[1], k / this.dim[2]];
  }

  frac2grid(xyz) {
    return xyz.map((x, axis) => Math.floor(x * this.dim[axis]));
  }
}

// ---- the three-dimensional view

let viewer = null;

function makeMap(density) {
  const map = new UM.ElMap();
  map.unit_cell = new UM.UnitCell(...info.cell);
  map.grid = density;
  map.stats = {mean: 0, rms};
  map.unit = report.scale.factor === null ? '' : 'e/Å³';
  return map;
}

function centre() {
  const half = (axis) =>
    (report.density.starts[axis] + report.density.counts[axis] / 2) / info.intervals[axis];
  if (viewer.selected.bag) viewer.recenter(undefined, undefined, 1);
  else viewer.recenter(viewer.map_bags[0].map.unit_cell.orthogonalize([half(0), half(1), half(2)]), undefined, 1);
}

function setColours() {
  const bag = viewer.map_bags[0];
  bag.types = negative ? ['map_pos', 'map_neg'] : ['map_den'];
}

function redrawLevel() {
  const bag = viewer.map_bags[0];
  setColours();
  bag.isolevel = level;
  viewer.clear_el_objects(bag);
  viewer.add_el_objects(bag);
  viewer.request_render();
}

function showViewer(density) {
  viewer = new UM.Viewer({viewer: 'viewer', hud: 'hud', help: 'help', focusable: true,
                          map_radius: Number(at('radius').value), max_map_radius: 40});
  if (!viewer.renderer) {
    viewer = null;
    at('hud').textContent = 'This browser offers no WebGL: the sections below show the map.';
    return;
  }
  if (report.model) viewer.load_pdb_from_text(report.model.pdb);
  viewer.add_map(makeMap(density), report.difference);
  viewer.change_isolevel_by = (which, delta) => setLevel(level + delta);
  centre();
  listeners.push(redrawLevel);
  at('centre').addEventListener('click', centre);
  at('radius').addEventListener('input', () => {
    viewer.config.map_radius = Number(at('radius').value);
    viewer.redraw_maps(true);
    viewer.request_render();
  });
}

// ---- histogram

function drawHistogram() {
  const {low, high, counts} = report.histogram;
  const [width, height, foot] = [640, 220, 30];
  const svg = at('histogram');
  svg.setAttribute('viewBox', `0 0 ${width} ${height}`);
  const top = Math.log1p(Math.max(...counts));
  const x = (value) => ((value - low) / (high - low)) * width;
  counts.forEach((count, i) => {
    const tall = (Math.log1p(count) / top) * (height - foot - 10);
    shape(svg, 'rect', {class: 'bar', x: (i * width) / counts.length, y: height - foot - tall,
                        width: width / counts.length, height: tall});
  });
  shape(svg, 'path', {class: 'axis', d: `M0 ${height - foot}H${width}`});
  const step = d3.tickStep(low / rms, high / rms, 8);
  for (const tick of d3.ticks(low / rms, high / rms, 8)) {
    const place = x(tick * rms);
    if (place < 10 || place > width - 10) continue;
    shape(svg, 'text', {x: place, y: height - foot + 14, 'text-anchor': 'middle'},
          tick.toFixed(step < 1 ? 1 : 0));
  }
  shape(svg, 'text', {x: width / 2, y: height - 3, 'text-anchor': 'middle'},
        'density in rms about zero (count on a logarithmic scale)');
  const marker = shape(svg, 'path', {class: 'marker', id: 'marker'});
  const total = d3.sum(counts);
  listeners.push(() => {
    const lines = negative ? [level, -level] : [level];
    marker.setAttribute('d', lines.map((l) => `M${x(l * rms)} 0V${height - foot}`).join(''));
    const share = (pick) => (100 * d3.sum(counts, (count, i) =>
      pick(low + ((i + 0.5) * (high - low)) / counts.length) ? count : 0)) / total;
    at('above').textContent = `${share((v) => v > level * rms).toFixed(2)} % of the points lie above the level` +
      (negative ? `, ${share((v) => v < -level * rms).toFixed(2)} % below its negative.` : '.');
  });
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
    for (let n = 1; n <= 12 && n * level * rms < highest; ++n) {
      const rings = contours.contour(signed, n * level * rms).coordinates.flat();
      const path = rings.map((ring) => ringPath(ring, size, place)).join('');
      shape(svg, 'path', {class: sign > 0 ? 'contour' : 'contour minus', d: path,
                          'stroke-opacity': Math.min(1, 0.45 + 0.15 * n)});
    }
  }
}

function drawAtoms(svg, axis, height, density, place) {
  const [a, b] = planes[axis];
  const normal = 'xyz'.indexOf(axis);
  const cell = new UM.UnitCell(...info.cell);
  for (const atom of report.model ? report.model.atoms : []) {
    // The copy of the atom that lies in the box, if the box is as long as the cell.
    const at = cell.fractionalize(atom).map((f, i) => {
      const n = info.intervals[i];
      return (((f * n - density.starts[i]) % n) + n) % n;
    });
    if (at[a] >= density.counts[a] || at[b] >= density.counts[b]) continue;
    if (Math.abs(at[normal] - height) * info.cell[normal] > info.intervals[normal]) continue;
    const [x, y] = place([at[a] + 0.5, at[b] + 0.5]);
    shape(svg, 'circle', {class: 'atom', cx: x, cy: y, r: 2.5});
  }
}

function drawSection(density) {
  const axis = at('axis').value;
  const [a, b, angle] = planes[axis];
  const normal = 'xyz'.indexOf(axis);
  const height = Number(at('section').value);
  const size = [density.counts[a], density.counts[b]];
  const values = new Float64Array(size[0] * size[1]);
  const index = [0, 0, 0];
  index[normal] = height;
  for (let j = 0; j < size[1]; ++j) {
    for (let i = 0; i < size[0]; ++i) {
      index[a] = i;
      index[b] = j;
      values[j * size[0] + i] = density.at(...index);
    }
  }
  const gamma = (info.cell[angle] * Math.PI) / 180;
  const scaleA = info.cell[a] / info.intervals[a];
  const scaleB = info.cell[b] / info.intervals[b];
  const wide = size[0] * scaleA + size[1] * scaleB * Math.abs(Math.cos(gamma));
  const unit = 620 / wide;
  const shift = Math.max(0, -size[1] * scaleB * Math.cos(gamma));
  const tall = size[1] * scaleB * Math.sin(gamma) * unit;
  const place = ([i, j]) => [((i * scaleA + j * scaleB * Math.cos(gamma) + shift) * unit + 10).toFixed(1),
                             (tall - j * scaleB * Math.sin(gamma) * unit + 10).toFixed(1)];
  const svg = at('contours');
  svg.replaceChildren();
  svg.setAttribute('viewBox', `0 0 640 ${(tall + 34).toFixed(1)}`);
  const corners = [[0, 0], [size[0], 0], size, [0, size[1]]].map(place);
  shape(svg, 'path', {class: 'axis', d: `M${corners.join('L')}Z`});
  drawContours(svg, Array.from(values), size, place);
  drawAtoms(svg, axis, height, density, place);
  const names = 'xyz';
  shape(svg, 'text', {x: 320, y: tall + 28, 'text-anchor': 'middle'},
        `${names[a]} to the right, ${(size[0] * scaleA).toFixed(1)} Å; ${names[b]} upwards, ${(size[1] * scaleB).toFixed(1)} Å`);
  const fraction = (height + density.starts[normal]) / info.intervals[normal];
  at('section-text').textContent = `${axis} = ${fraction.toFixed(3)} (point ${height + density.starts[normal]} of ${info.intervals[normal]})`;
}

function showSections(density) {
  const draw = () => drawSection(density);
  const choose = () => {
    const n = density.counts['xyz'.indexOf(at('axis').value)];
    at('section').max = n - 1;
    at('section').value = Math.floor(n / 2);
    draw();
  };
  at('axis').addEventListener('change', choose);
  at('section').addEventListener('input', draw);
  at('section').max = density.counts[2] - 1;
  at('section').value = Math.floor(density.counts[2] / 2);
  listeners.push(draw);
}

// ---- tables

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
  for (const name of ['shell, Å', 'reflections', 'possible', 'complete', 'rms amplitude']) element(head, 'th', name);
  for (const shell of shells) {
    const line = element(at('shells'), 'tr');
    for (const cell of [`${shell.low.toFixed(2)} – ${shell.high.toFixed(2)}`, shell.found, shell.possible,
                        `${((100 * shell.found) / Math.max(1, shell.possible)).toFixed(1)} %`,
                        shell.amplitude >= 100 ? Math.round(shell.amplitude) : shell.amplitude.toPrecision(3)]) element(line, 'td', cell);
  }
  element(at('shells').parentNode, 'p', text);
}

function fillTables() {
  const statistics = info.statistics;
  const number = (x) => (x === null || x === undefined ? 'none' : Number(x).toPrecision(5));
  const four = (s, rmsName) => `minimum ${number(s.minimum)}, maximum ${number(s.maximum)}, mean ${number(s.mean)}, rms ${number(s[rmsName])}`;
  const header = at('header');
  row(header, 'file', info.file);
  row(header, 'cell', `${info.cell.slice(0, 3).map((x) => x.toFixed(3)).join(' ')} Å, ${info.cell.slice(3).map((x) => x.toFixed(2)).join(' ')}°`);
  row(header, 'group', `${info.space_group} (number ${info.space_group_number}), ${info.symmetry_records.length} symmetry records`);
  row(header, 'points', `${info.points.join(' × ')} from ${info.starts.join(', ')}, of ${info.intervals.join(' × ')} in the cell: ${info.covers}`);
  row(header, 'spacing', info.intervals.map((n, i) => (info.cell[i] / n).toFixed(3)).join(' × ') + ' Å');
  row(header, 'axes', `columns, rows, sections along ${info.axis_order}`);
  row(header, 'values', `${info.values}, ${info.byte_order}`);
  row(header, 'origin', `${info.origin} (words 50-52)`);
  row(header, 'header says', four(statistics.header, 'rms') + `; word 55 is the ${statistics.word_55}`);
  row(header, 'found', four(statistics.recomputed, 'rms_about_zero') + ` about zero, ${number(statistics.recomputed.rms_about_mean)} about the mean`);
  row(header, 'symmetry', report.symmetry);
  row(header, 'scale', report.scale.text);
  for (const label of info.labels) element(at('labels'), 'li', label);
  at('made').textContent = report.made;
  for (const script of report.scripts) {
    element(at('scripts'), 'p', `${script.program}: ${script.command}`);
    element(at('scripts'), 'pre', script.text);
  }
}

function fillHead() {
  document.title = report.title;
  at('title').textContent = report.title;
  at('summary').textContent = `${info.space_group}, ${info.intervals.join(' × ')} points in the cell, ` +
    `${info.covers}, rms ${rms.toPrecision(4)}` + (report.model ? `, with ${report.model.file}` : '');
  at('notices').hidden = report.notices.length === 0;
  at('notices').textContent = report.notices.join('\n');
}

async function start() {
  fillHead();
  fillTables();
  drawHistogram();
  drawCompleteness();
  const density = new Density(report.density, await unpack(report.density.data));
  showSections(density);
  showViewer(density);
  at('negative').checked = negative;
  at('negative').addEventListener('change', () => {
    negative = at('negative').checked;
    setLevel(level);
  });
  at('level').addEventListener('input', () => setLevel(Number(at('level').value)));
  setLevel(level);
  document.body.dataset.ready = 'yes';
}

start();
