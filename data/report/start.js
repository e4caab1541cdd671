// ---- lists to jump by

// Rows of report.residues: chain, name, number, kind, centre, correlation, mean density, atoms.
const residues = report.residues.map(([chain, name, number, kind, xyz, correlation, density, atoms]) =>
  ({chain, name, number, kind, xyz, correlation, density, atoms, text: `${chain}/${name} ${number}`}));
const compared = residues.some((r) => r.correlation !== null);
const measure = (r) => (compared ? r.correlation : r.density);
const measureText = (r) => (measure(r) === null ? '' : measure(r).toFixed(compared ? 3 : 2));
const sizeOf = (r) => (r.atoms > 12 ? 11 : 8);

function goToResidue(residue, steps) {
  goTo(residue.xyz, `${residue.text}${measure(residue) === null ? '' :
    `: ${compared ? 'correlation' : 'mean density'} ${measureText(residue)}${compared ? '' : ' rms'}`}`, sizeOf(residue), steps);
  markResidue(residue);
}

const nameOf = (peak) => peak.near.replace(/ \(serial.*/, '');

function goToPeak(peak, steps) {
  const near = peak.near ? `, ${peak.distance.toFixed(2)} Å from ${nameOf(peak)}` : '';
  goTo(peak.xyz, `peak of ${peak.height.toFixed(1)} rms${near}`, 8, steps);
}

function button(list, text, value, kind, go) {
  const made = element(element(list, 'li'), 'button', undefined, {type: 'button'});
  if (value) element(made, 'span', value, {class: `value ${kind}`});
  made.append(text);
  made.addEventListener('click', () => {
    for (const other of at('places').querySelectorAll('[aria-current]')) other.removeAttribute('aria-current');
    made.setAttribute('aria-current', 'location');
    go();
  });
}

// A list that is filled when it is opened: a chain may be long.
function addList(id, title, entries, open, add) {
  if (!entries.length) return;
  const details = element(at('places'), 'details', undefined, {id});
  element(details, 'summary', `${title} (${entries.length})`);
  const list = element(details, 'ul');
  const fill = () => {
    if (!list.childElementCount) entries.forEach((entry) => add(list, entry));
  };
  details.addEventListener('toggle', () => details.open && fill());
  if (open) fill();
  details.open = open;
}

function showPlaces() {
  const addResidue = (list, r) => button(list, r.text, measureText(r), '', () => goToResidue(r));
  const addPeak = (list, p) => {
    const text = p.near ? `${nameOf(p)}, ${p.distance.toFixed(1)} Å` : p.xyz.map((x) => x.toFixed(1)).join(', ');
    button(list, text, p.height.toFixed(1), p.height > 0 ? 'plus' : 'minus', () => goToPeak(p));
  };
  addList('ligands', 'Ligands and ions', residues.filter((r) => r.kind === 'l'), true, addResidue);
  const of = report.maps.some((part) => part.difference) ? 'difference ' : '';
  addList('peaks', `Highest ${of}peaks`, report.peaks.filter((p) => p.height > 0), true, addPeak);
  addList('holes', `Deepest ${of}peaks`, report.peaks.filter((p) => p.height < 0), false, addPeak);
  for (const chain of new Set(residues.map((r) => r.chain))) {
    addList(`chain-${chain}`, `Chain ${chain}`, residues.filter((r) => r.chain === chain && r.kind === 'p'), false, addResidue);
  }
  addList('waters', 'Waters', residues.filter((r) => r.kind === 'w'), false, addResidue);
}

// ---- the plot of residues

let plotted = [];
let marked = -1;

function markResidue(residue) {
  if (residue.kind === 'w' || at('residues-card').hidden) return;
  if (at('chain').value !== residue.chain) {
    at('chain').value = residue.chain;
    drawResidues();
  }
  pointAt(plotted.indexOf(residue));
}

function pointAt(number) {
  const bars = at('residues').querySelectorAll('.value-bar');
  if (bars[marked]) bars[marked].classList.remove('chosen');
  marked = number;
  if (!bars[marked]) return;
  bars[marked].classList.add('chosen');
  const residue = plotted[marked];
  at('residue-text').textContent = `${residue.text}: ${measureText(residue) || 'no density'}`;
  const frame = at('residues').parentNode;
  const x = Number(bars[marked].getAttribute('x'));
  if (x < frame.scrollLeft || x > frame.scrollLeft + frame.clientWidth) frame.scrollLeft = x - frame.clientWidth / 2;
}

function drawResidues() {
  plotted = residues.filter((r) => r.chain === at('chain').value && r.kind !== 'w');
  marked = -1;
  const svg = at('residues');
  svg.replaceChildren();
  const [left, height, foot] = [34, 170, 24];
  const room = svg.parentNode.clientWidth - left - 4;
  const wide = Math.min(16, Math.max(5, room / Math.max(1, plotted.length)));
  const width = Math.ceil(left + wide * plotted.length + 4);
  const values = residues.map(measure).filter((v) => v !== null);
  const high = compared ? 1 : Math.max(1, d3.quantile(values, 0.99) || 1);
  const y = (value) => height - foot - (Math.min(Math.max(value, 0), high) / high) * (height - foot - 8);
  // What is low is so against the rest of the model.
  const low = compared ? Math.min(0.8, d3.quantile(values, 0.1) || 0) : 1;
  svg.setAttribute('viewBox', `0 0 ${width} ${height}`);
  svg.setAttribute('width', width);
  svg.setAttribute('height', height);
  for (const tick of d3.ticks(0, high, 5)) {
    shape(svg, 'path', {class: 'axis', d: `M${left} ${y(tick)}H${width}`});
    shape(svg, 'text', {x: left - 5, y: y(tick) + 4, 'text-anchor': 'end'}, tick);
  }
  plotted.forEach((residue, i) => {
    const [x, value] = [left + i * wide, measure(residue)];
    const top = y(value ?? 0);
    shape(svg, 'rect', {class: `value-bar${value !== null && value < low ? ' low' : ''}`, x, y: top, width: wide - 1, height: height - foot - top});
    const slot = shape(svg, 'rect', {class: 'slot', 'data-residue': residue.text, x, y: 0, width: wide, height: height - foot});
    shape(slot, 'title', {}, `${residue.text}: ${measureText(residue) || 'no density'}`);
    slot.addEventListener('click', () => goToResidue(residue));
    if (Number(residue.number) % 10 === 0) {
      shape(svg, 'text', {x: x + wide / 2, y: height - foot + 14, 'text-anchor': 'middle'}, residue.number);
    }
  });
}

function showResidues() {
  const chains = [...new Set(residues.filter((r) => r.kind !== 'w').map((r) => r.chain))];
  if (!chains.length || residues.every((r) => measure(r) === null)) return;
  at('residues-card').hidden = false;
  for (const chain of chains) element(at('chain'), 'option', chain);
  at('residue-legend').textContent = compared
    ? `correlation of 2mFo-DFc with DFc within ${report.radius.toFixed(2)} Å of the atoms; click one, or use the arrow keys`
    : 'mean density at the atoms, in rms; click one, or use the arrow keys';
  at('chain').addEventListener('change', drawResidues);
  at('residues').addEventListener('keydown', (event) => {
    const steps = {ArrowLeft: -1, ArrowRight: 1, PageUp: -10, PageDown: 10, Home: -1e9, End: 1e9}[event.key];
    if (event.key === 'Enter' && plotted[marked]) goToResidue(plotted[marked]);
    else if (steps) pointAt(Math.min(Math.max((marked < 0 ? 0 : marked) + steps, 0), plotted.length - 1));
    else return;
    event.preventDefault();
  });
  drawResidues();
}

// ---- tables

function fillHeader() {
  const {info, part} = chosen;
  const statistics = info.statistics;
  const number = (x) => (x === null || x === undefined ? 'none' : Number(x).toPrecision(5));
  const four = (s, rmsName) => `minimum ${number(s.minimum)}, maximum ${number(s.maximum)}, mean ${number(s.mean)}, rms ${number(s[rmsName])}`;
  const header = at('header');
  header.replaceChildren();
  row(header, 'map', info.file);
  row(header, 'cell', `${info.cell.slice(0, 3).map((x) => x.toFixed(3)).join(' ')} Å, ${info.cell.slice(3).map((x) => x.toFixed(2)).join(' ')}°`);
  row(header, 'group', `${info.space_group} (number ${info.space_group_number}), ${info.symmetry_records.length} symmetry records`);
  row(header, 'points', `${info.points.join(' × ')} from ${info.starts.join(', ')}, of ${info.intervals.join(' × ')} in the cell: ${info.covers}`);
  row(header, 'spacing', info.intervals.map((n, i) => (info.cell[i] / n).toFixed(3)).join(' × ') + ' Å');
  row(header, 'axes', `columns, rows, sections along ${info.axis_order}`);
  row(header, 'values', `${info.values}, ${info.byte_order}`);
  row(header, 'origin', `${info.origin} (words 50-52)`);
  row(header, 'header says', four(statistics.header, 'rms') + `; word 55 is the ${statistics.word_55}`);
  row(header, 'found', four(statistics.recomputed, 'rms_about_zero') + ` about zero, ${number(statistics.recomputed.rms_about_mean)} about the mean`);
  row(header, 'symmetry', part.symmetry);
  row(header, 'scale', part.scale.text);
  at('labels').replaceChildren();
  for (const line of part.history) element(at('labels'), 'li', line);
}

function fillScripts() {
  at('made').textContent = report.made;
  for (const script of report.scripts) {
    element(at('scripts'), 'p', `${script.program}: ${script.command}`);
    element(at('scripts'), 'pre', script.text);
  }
  if (report.scripts.length) return;
  const model = report.model ? ` ${report.model.file} --extent cell` : '';
  element(at('scripts'), 'p', 'The maps as files, with scripts for Coot, PyMOL and ChimeraX:');
  element(at('scripts'), 'pre', `quorix map ${report.source}${model} --scripts`);
}

function fillHead() {
  const {info} = maps[0];
  document.title = report.title;
  at('title').textContent = report.title + (report.model ? ` with ${report.model.file}` : '');
  const scale = maps.map((map) => {
    const f = map.part.scale.factor;
    return `rms of ${map.part.name} ${f === null ? map.rms.toPrecision(4) : `${(map.rms * f).toPrecision(4)} e/Å³`}`;
  });
  at('summary').textContent = `${info.space_group}, ${info.intervals.join(' × ')} points in the cell, ${info.covers}, ${scale.join(', ')}`;
  at('notices').hidden = report.notices.length === 0;
  at('notices').textContent = report.notices.join('\n');
}

// What the cards below are of.
function showChooser() {
  maps.forEach((map, i) => element(at('which'), 'option', map.part.name, {value: i}));
  at('chooser').hidden = maps.length < 2;
  at('which').addEventListener('change', () => {
    chosen = maps[Number(at('which').value)];
    drawHistogram();
    fillHeader();
    chooseSection();
  });
  for (const map of maps) {
    map.listeners.push(() => {
      if (map !== chosen) return;
      markHistogram();
      drawSection();
    });
  }
}

// ---- where the page begins

// All that the page holds: the model, else the box of the map.
function showAll(steps) {
  const {starts, counts} = maps[0].part.density;
  const {intervals, cell: edges} = maps[0].info;
  const middle = cell.orthogonalize([0, 1, 2].map((a) => (starts[a] + counts[a] / 2) / intervals[a]));
  const half = Math.hypot(...[0, 1, 2].map((a) => (edges[a] * counts[a]) / intervals[a])) / 2;
  const part = maps[0].info.covers !== 'the whole cell';
  const atoms = report.model && !part ? report.model.atoms : [];
  const centre = atoms.length ? [0, 1, 2].map((a) => d3.mean(atoms, (atom) => atom[a])) : middle;
  const size = atoms.length ? Math.max(...atoms.map((x) => Math.hypot(...x.map((v, a) => v - centre[a])))) + 3 : half;
  if (viewer) setRadius(Math.min(40, Math.max(12, Math.ceil(Math.min(size, half)))));
  goTo(centre, 'the whole', size, steps);
}

function begin() {
  const start = report.start;
  if (maps[0].info.covers !== 'the whole cell') showAll(1);  // somebody chose the box
  else if (start && start.kind === 'residue') goToResidue(residues[start.number], 1);
  else if (start) goToPeak(report.peaks[start.number], 1);
  else showAll(1);
  at('centre').addEventListener('click', () => showAll(30));
}

async function start() {
  fillHead();
  fillScripts();
  showLevels();
  for (const map of maps) map.density = new Density(map.part, await unpack(map.part.density.data));
  showPlaces();
  showSections();
  showViewer();
  showResidues();
  drawHistogram();
  fillHeader();
  drawCompleteness();
  showChooser();
  begin();
  if (viewer) setRadius(Number(at('radius').value));
  for (const map of maps) map.setLevel(map.level);
  document.body.dataset.ready = 'yes';
}

start();
