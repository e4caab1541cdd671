// The page that quorix report writes: everything it shows comes from the JSON in #report. This part
// holds the maps, their levels and what the others share.
'use strict';

const report = JSON.parse(document.getElementById('report').textContent);
const at = (id) => document.getElementById(id);
const axes = 'xyz';

function element(parent, name, text, attributes = {}) {
  const made = document.createElement(name);
  if (text !== undefined) made.textContent = text;
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
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
  element(made, 'th', heading, {scope: 'row'});
  element(made, 'td', text);
};

async function unpack(text) {
  const bytes = Uint8Array.from(atob(text), (c) => c.charCodeAt(0));
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream('gzip'));
  return new Uint8Array(await new Response(stream).arrayBuffer());
}

// ---- the density that the page holds

const notHeld = 255;

// A box of the periodic cell, x fastest; elsewhere what the symmetry gives, else zero.
class Density {
  constructor(part, bytes) {
    const box = part.density;
    const rms = part.map.statistics.recomputed.rms_about_zero;
    this.counts = box.counts;
    this.starts = box.starts;
    this.dim = part.map.intervals;
    this.operators = part.operators;
    this.step = box.step * rms;
    this.lowest = box.lowest * rms;
    this.bytes = bytes;
  }

  index([i, j, k]) {
    return (k * this.counts[1] + j) * this.counts[0] + i;
  }

  at(i, j, k) {
    const byte = this.bytes[this.index([i, j, k])];
    return byte === notHeld ? 0 : this.lowest + this.step * byte;
  }

  // Where in the box a point of the cell lies; null if it is not held.
  place(point) {
    const inside = point.map((index, axis) => {
      const n = this.dim[axis];
      return (((Math.round(index) - this.starts[axis]) % n) + n) % n;
    });
    if (!inside.every((index, axis) => index < this.counts[axis])) return null;
    return this.bytes[this.index(inside)] === notHeld ? null : inside;
  }

  // What the viewer asks of its grid: indices of the cell.
  get_grid_value(i, j, k) {
    const own = this.place([i, j, k]);
    if (own) return this.at(...own);
    for (const m of this.operators) {
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

// ---- maps: each with its level, in rms about zero; what that is in e/A^3 depends on its scale

class ShownMap {
  constructor(part, number) {
    this.part = part;
    this.info = part.map;
    this.number = number;
    this.rms = part.rms_unit;  // of the whole cell, where the map tells it
    this.level = part.difference ? 3 : 1.5;
    this.negative = part.difference;
    this.shown = true;
    this.listeners = [];
  }

  id(name) {
    return this.number === 0 ? name : `${name}-${this.number + 1}`;
  }

  electrons() {
    const value = this.level * this.rms;
    const factor = this.part.scale.factor;
    return factor === null ? `${value.toPrecision(3)} in the file` : `${(value * factor).toFixed(3)} e/Å³`;
  }

  setLevel(wanted) {
    const slider = at(this.id('level'));
    this.level = Math.min(Math.max(wanted, Number(slider.min)), Number(slider.max));
    slider.value = this.level;
    at(this.id('level-text')).textContent = `${this.level.toFixed(2)} rms = ${this.electrons()}`;
    this.tell();
  }

  tell() {
    for (const listener of this.listeners) listener();
  }
}

const maps = report.maps.map((part, number) => new ShownMap(part, number));
let chosen = maps[0];  // what the cards show
const cell = new UM.UnitCell(...maps[0].info.cell);

function showLevels() {
  for (const map of maps) {
    const line = element(at('levels'), 'div', undefined, {class: 'level'});
    const name = element(line, 'label', undefined, {class: 'name'});
    const box = element(name, 'input', undefined, {type: 'checkbox', id: map.id('shown')});
    box.checked = true;
    for (const kind of map.part.difference ? ['swatch plus', 'swatch minus'] : ['swatch']) {
      element(name, 'span', undefined, {class: kind});
    }
    name.append(` ${map.part.name}`);
    const slider = element(line, 'input', undefined,
                           {type: 'range', id: map.id('level'), min: 0.2, max: 8, step: 0.05,
                            'aria-label': `Level of ${map.part.name}`});
    element(line, 'output', undefined, {id: map.id('level-text'), for: map.id('level')});
    const both = element(line, 'label');
    const negative = element(both, 'input', undefined, {type: 'checkbox', id: map.id('negative')});
    both.append(' negative contours');
    negative.checked = map.negative;
    box.addEventListener('change', () => {
      map.shown = box.checked;
      map.tell();
    });
    negative.addEventListener('change', () => {
      map.negative = negative.checked;
      map.tell();
    });
    slider.addEventListener('input', () => map.setLevel(Number(slider.value)));
  }
}

// ---- places: where the view and the sections are

const movers = [];
let here = null;  // Angstrom

// `size`: Angstrom that are to be seen about it.
function goTo(xyz, text, size, steps = 30) {
  here = xyz;
  at('here').textContent = text;
  for (const mover of movers) mover(xyz, text, size, steps);
}
