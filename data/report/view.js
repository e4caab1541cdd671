// ---- the three-dimensional view

let viewer = null;

// What the view is drawn in on a light and on a dark page: contours keep a contrast of three to one,
// and no atom has the colour of a contour. Elements that are not named here are `def`.
function colourSchemes() {
  const colours = {
    light: {bg: 0xffffff, fg: 0x000000, map_den: 0x3362b2, map_pos: 0x298029, map_neg: 0xb03030, center: 0xb5620c, H: 0x999999, C: 0x7d7000,
            N: 0x1c51b3, O: 0xc33869, S: 0x9e7b3d, P: 0xb86f00, CL: 0x4f9a20, MG: 0x707070, CA: 0x505050, MN: 0xc04080, FE: 0xa03000,
            NI: 0x008a45, def: 0x808080},
    dark: {bg: 0x000000, fg: 0xffffff, map_den: 0x4c7bd0, map_pos: 0x2f962f, map_neg: 0xc24040, center: 0xc997b0, H: 0x858585, C: 0xb3b300,
           N: 0x7eaafb, O: 0xf24984, S: 0x40ff40, P: 0xffc040, CL: 0xa0ff60, MG: 0xc0c0c0, CA: 0xffffff, MN: 0xff90c0, FE: 0xa03000,
           NI: 0x00ff80, def: 0xa0a0a0},
  };
  const made = ([name, value]) => [name, new UM.Color(value)];
  const scheme = ([name, values]) => [name, Object.fromEntries(Object.entries(values).map(made))];
  return Object.fromEntries(Object.entries(colours).map(scheme));
}

// What lies over the view and the swatches of the maps follow it, also when a key has changed it.
function setColours() {
  UM.Viewer.prototype.set_colors.call(viewer);
  for (const name of ['bg', 'fg', 'map_den', 'map_pos', 'map_neg']) {
    document.documentElement.style.setProperty(`--view-${name}`, `#${viewer.config.colors[name].getHexString()}`);
  }
}

function chooseScheme(name) {
  viewer.config.color_scheme = name;
  viewer.set_colors();
  viewer.request_render();
}

function followScheme() {
  const dark = window.matchMedia('(prefers-color-scheme: dark)');
  const follow = () => chooseScheme(dark.matches ? 'dark' : 'light');
  viewer.ColorSchemes = colourSchemes();
  viewer.set_colors = setColours;
  dark.addEventListener('change', follow);
  follow();
}

// Half the width of a box about a sphere, in fractions of the cell along each axis.
function fractionalReach(radius) {
  const step = 1e-3;
  const rows = [0, 1, 2].map((axis) => {
    const unit = [0, 0, 0];
    unit[axis] = step;
    return cell.fractionalize(unit).map((x) => x / step);
  });
  return [0, 1, 2].map((a) => radius * Math.hypot(rows[0][a], rows[1][a], rows[2][a]));
}

// A map of the viewer's that is cut by a sphere about the centre.
function makeMap(map) {
  const made = new UM.ElMap();
  made.unit_cell = cell;
  made.grid = map.density;
  made.stats = {mean: 0, rms: map.rms};
  made.unit = map.part.scale.factor === null ? '' : 'e/Å³';
  let [middle, radius] = [[0, 0, 0], 0];
  made.extract_block = function (wanted, centre) {
    [middle, radius] = [centre, wanted];
    const dim = map.density.dim;
    const f = cell.fractionalize(centre);
    const reach = fractionalReach(wanted);
    const low = f.map((x, a) => Math.floor((x - reach[a]) * dim[a]));
    const high = f.map((x, a) => Math.ceil((x + reach[a]) * dim[a]));
    const [points, values] = [[], []];
    const margin = wanted + 3;
    for (let i = low[0]; i <= high[0]; ++i) {
      for (let j = low[1]; j <= high[1]; ++j) {
        for (let k = low[2]; k <= high[2]; ++k) {
          const point = cell.orthogonalize(map.density.grid2frac(i, j, k));
          points.push(point);
          const far = Math.hypot(point[0] - centre[0], point[1] - centre[1], point[2] - centre[2]) > margin;
          values.push(far ? 0 : map.density.get_grid_value(i, j, k));
        }
      }
    }
    this.block.set(points, values, low.map((l, a) => high[a] - l + 1));
  };
  made.isomesh_in_block = function (level, style) {
    const mesh = UM.ElMap.prototype.isomesh_in_block.call(this, level, style);
    if (!mesh) return mesh;
    const inside = (v) => Math.hypot(mesh.vertices[3 * v] - middle[0], mesh.vertices[3 * v + 1] - middle[1],
                                     mesh.vertices[3 * v + 2] - middle[2]) <= radius;
    const segments = [];
    for (let i = 0; i < mesh.segments.length; i += 2) {
      if (inside(mesh.segments[i]) && inside(mesh.segments[i + 1])) segments.push(mesh.segments[i], mesh.segments[i + 1]);
    }
    return {vertices: mesh.vertices, segments};
  };
  return made;
}

function redraw(map) {
  const bag = viewer.map_bags[map.number];
  if (map.part.difference) bag.types = map.negative ? ['map_pos', 'map_neg'] : ['map_pos'];
  else bag.types = map.negative ? ['map_pos', 'map_neg'] : ['map_den'];
  bag.isolevel = map.level;
  bag.visible = map.shown;
  viewer.clear_el_objects(bag);
  viewer.add_el_objects(bag);
  viewer.request_render();
}

// Half the height of the view in Angstrom, which is its smaller side or a little less.
function zoomTo(size) {
  const {right, top} = viewer.camera;
  viewer.camera.zoom = Math.min(right, top) / size;
  viewer.update_camera();
}

function moveView(xyz, text, size, steps) {
  const target = viewer.target.clone();
  target.set(...xyz);
  viewer.controls.go_to(target, null, null, steps);
  if (size) zoomTo(size);
  viewer.hud(text);
  viewer.request_render();
}

function setRadius(wanted) {
  at('radius').value = wanted;
  at('radius-text').textContent = `${at('radius').value} Å`;
  viewer.config.map_radius = Number(at('radius').value);
  viewer.redraw_maps(true);
  viewer.request_render();
}

// Keys are for the view when it has the focus; letters also when nothing has it.
function bindKeys() {
  const canvas = viewer.renderer.domElement;
  canvas.setAttribute('role', 'application');
  canvas.setAttribute('aria-label', 'Density; H tells the keys');
  const takes = (event) => !event.ctrlKey && !event.metaKey && !event.altKey && viewer.key_bindings[event.keyCode];
  canvas.addEventListener('keydown', (event) => {
    if (takes(event)) event.preventDefault();  // the page stays where it is
  });
  document.addEventListener('keydown', (event) => {
    if (event.target !== document.body && event.target !== at('help')) return;
    const letter = event.keyCode >= 65 && event.keyCode <= 90;
    if (letter && takes(event)) viewer.keydown(event);
    if (event.key === 'Escape') at('help').style.display = 'none';
  });
  at('keys').addEventListener('click', () => viewer.toggle_help());
}

// The canvas lies in a box of its own, which the viewer does not reckon with.
function findMouse() {
  const place = (event) => {
    const box = viewer.container.getBoundingClientRect();
    return [event.pageX - window.scrollX - box.left, event.pageY - window.scrollY - box.top, box];
  };
  viewer.relX = (event) => {
    const [x, , box] = place(event);
    return (2 * x) / box.width - 1;
  };
  viewer.relY = (event) => {
    const [, y, box] = place(event);
    return 1 - (2 * y) / box.height;
  };
}

// A printed page shows what the screen does, on white.
function bindPrinting() {
  let before = null;
  window.addEventListener('beforeprint', () => {
    before ??= viewer.config.color_scheme;
    chooseScheme('light');
    viewer.render();
    at('snapshot').src = viewer.renderer.domElement.toDataURL('image/png');
  });
  window.addEventListener('afterprint', () => {
    at('snapshot').removeAttribute('src');
    if (before) chooseScheme(before);
    before = null;
  });
}

function showViewer() {
  viewer = new UM.Viewer({viewer: 'viewer', hud: 'hud', help: 'help', focusable: true,
                          map_radius: Number(at('radius').value), max_map_radius: 40});
  if (!viewer.renderer) {
    viewer = null;
    at('hud').textContent = 'This browser offers no WebGL: the sections below show the map.';
    return;
  }
  followScheme();
  if (report.model) viewer.load_pdb_from_text(report.model.pdb);
  for (const map of maps) {
    viewer.add_map(makeMap(map), map.part.difference);
    map.listeners.push(() => redraw(map));
  }
  viewer.change_isolevel_by = (which, delta) => {
    if (which < maps.length) maps[which].setLevel(maps[which].level + delta);
  };
  viewer.change_map_radius = (delta) => setRadius(viewer.config.map_radius + delta);
  findMouse();
  bindKeys();
  bindPrinting();
  movers.push(moveView);
  at('radius').addEventListener('input', () => setRadius(Number(at('radius').value)));
}
