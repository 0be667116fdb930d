'use strict';
// The map of an exploration: operations from left to right, a band a partition, each point coloured by its state.
// Text from an exploration becomes text nodes only.

class ExplorationMap {
  static bandHeight = 84;
  static gap = 18;
  static left = 48;
  static rank = { good: 0, old: 1, warn: 2, bad: 3 };
  static unnamed = { name: 'without a name', sign: '?', color: 'bad', left: 'A state that no name fits.', person: '' };

  static element(tag, words, cls) {
    const e = document.createElement(tag);
    if (words !== undefined) e.textContent = words;
    if (cls) e.className = cls;
    return e;
  }
  static color(name) { return getComputedStyle(document.documentElement).getPropertyValue('--' + name).trim(); }
  static mark(row) { return ExplorationMap.element('span', row.sign, 'mark ' + row.color); }
  static again(counts) {
    return Object.entries(counts).map(([name, n]) => `${name} (${n} ${n === 1 ? 'run' : 'runs'})`).join(', ') || 'not run';
  }

  // `opened` gets the name of a point that is opened by Enter or a double click.
  constructor(data, opened) {
    this.data = data;
    this.names = new Map(data.names.map(n => [n.name, n]));
    this.points = [];
    for (let i = 0; i < data.points.length; i += 3)
      this.points.push({ step: data.points[i], form: data.points[i + 1], state: data.points[i + 2] });
    this.parts = [...new Set(data.steps.map(s => s[0]))].sort();
    this.chosen = Math.max(0, this.points.findIndex(p => this.nameOf(p).color === 'bad'));
    this.build(opened || (() => {}));
    this.tell();
  }

  nameOf(point) { return this.names.get(this.data.classes[point.state].state) || ExplorationMap.unnamed; }
  pointName(p = this.points[this.chosen]) { return p ? `${p.step + 1}/${this.data.forms[p.form][0]}` : ''; }
  summary() {
    return `${this.data.steps.length} operations on the flash, ${this.points.length} points at which the power may fail, ` +
      `${this.data.states} different states. ${this.data.date}, seed ${this.data.seed}.`;
  }

  build(opened) {
    const { element } = ExplorationMap;
    this.canvas = element('canvas');
    for (const [name, value] of [['tabindex', 0], ['role', 'slider'], ['aria-label', 'Point of the exploration'],
      ['aria-orientation', 'horizontal'], ['aria-valuemin', 1], ['aria-valuemax', Math.max(1, this.points.length)]]) this.canvas.setAttribute(name, value);
    this.legend = element('div', undefined, 'map-legend');
    const used = new Set(this.points.map(p => this.nameOf(p)));
    for (const row of used) {
      const item = element('span');
      item.append(ExplorationMap.mark(row), ' ' + row.name);
      this.legend.append(item);
    }
    this.story = element('div', undefined, 'map-story');
    this.story.tabIndex = 0;
    this.story.setAttribute('role', 'group');
    this.story.setAttribute('aria-label', 'The chosen point');
    this.root = element('div', undefined, 'map');
    this.root.append(element('p', 'From left to right the operations on the flash; a band is a partition. In a band, from top to bottom: power ' +
      'lost before the operation, inside it in each torn form, after it. Choose a point with the mouse, or with the arrow keys.', 'quiet'),
    this.canvas, this.legend, this.story);
    this.canvas.addEventListener('click', e => this.choose(this.nearest(e)));
    this.canvas.addEventListener('dblclick', () => opened(this.pointName()));
    this.canvas.addEventListener('keydown', e => e.key === 'Enter' ? opened(this.pointName()) : this.key(e));
    new ResizeObserver(() => this.draw()).observe(this.root);
  }

  tell() {
    const p = this.points[this.chosen], { element, mark, again } = ExplorationMap;
    if (!p) return this.story.replaceChildren('The program changes nothing on the flash.');
    const step = this.data.steps[p.step], row = this.nameOf(p), kind = this.data.classes[p.state];
    this.story.replaceChildren();
    const line = (head, words) => { const l = element('p'); l.append(element('b', head + ' '), words); this.story.append(l); };
    const title = element('p');
    title.append(mark(row), ' ', element('b', row.name), ` (point ${this.pointName()})`);
    this.story.append(title);
    line('The power fails', `${this.data.forms[p.form][1]}: operation ${p.step + 1} of ${this.data.steps.length}, ${step[1]} of ` +
      `${step[3]} bytes at 0x${step[2].toString(16)} of mtd${step[0]} by ${step[5]}, ${(step[4] - this.data.steps[0][4]).toFixed(2)} s after the first.`);
    line('Left:', `${row.left} (${kind.words})`);
    line('After the same command:', again(kind.again));
    line('What a person does:', row.person);
    for (const b of this.data.broken) if (b.point.split(',')[0] === this.pointName()) line('Broken promise:', `${b.text}: ${b.what}`);
    this.canvas.setAttribute('aria-valuenow', this.chosen + 1);
    this.canvas.setAttribute('aria-valuetext', `point ${this.pointName()}, mtd${step[0]}: ${row.name}`);
  }

  // Several points share a column of pixels where there are many: the worst one is shown.
  cells(wide) {
    const worst = new Map(), { rank } = ExplorationMap;
    this.points.forEach((p, i) => {
      const key = (this.bandOf(p) * this.data.forms.length + p.form) * 65536 + Math.floor(p.step * wide), known = worst.get(key);
      if (known === undefined || rank[this.nameOf(p).color] > rank[this.nameOf(this.points[known]).color]) worst.set(key, i);
    });
    return worst.values();
  }

  bandOf(p) { return this.parts.indexOf(this.data.steps[p.step][0]); }

  draw() {
    const { bandHeight, gap, left, color } = ExplorationMap, { canvas } = this;
    const width = canvas.clientWidth, height = this.parts.length * (bandHeight + gap) + 4, ratio = window.devicePixelRatio || 1;
    if (!width) return;
    canvas.style.height = height + 'px';
    canvas.width = width * ratio;
    canvas.height = height * ratio;
    const c = canvas.getContext('2d');
    c.scale(ratio, ratio);
    c.font = '12px ui-monospace, "DejaVu Sans Mono", monospace';
    const wide = (width - left) / Math.max(1, this.data.steps.length), rows = bandHeight / Math.max(1, this.data.forms.length);
    const box = p => [left + p.step * wide, this.bandOf(p) * (bandHeight + gap) + p.form * rows];
    this.parts.forEach((part, band) => {
      c.fillStyle = color('text');
      c.fillText('mtd' + part, 0, band * (bandHeight + gap) + bandHeight / 2);
      c.fillStyle = color('well');
      c.fillRect(left, band * (bandHeight + gap), width - left, bandHeight);
    });
    const colors = Object.fromEntries(Object.keys(ExplorationMap.rank).map(name => [name, color(name)]));
    for (const i of this.cells(wide)) {
      const p = this.points[i];
      c.fillStyle = colors[this.nameOf(p).color];
      const [x, y] = box(p), begin = Math.floor(x); // whole pixels: no seams
      c.fillRect(begin, y, Math.max(1, Math.floor(x + wide) - begin - (wide > 4 ? 1 : 0)), rows - 1);
    }
    this.signs(c, wide, colors);
    const p = this.points[this.chosen];
    if (!p) return;
    const [x, y] = box(p);
    c.strokeStyle = color('text');
    c.lineWidth = 2;
    c.strokeRect(x - 2, y - 2, Math.max(1, wide) + 4, rows + 3);
  }

  // The sign of a state below the band, where it begins.
  signs(c, wide, colors) {
    const last = {}, end = {}, { bandHeight, gap, left } = ExplorationMap;
    for (const p of this.points) {
      if (this.data.forms[p.form][0] !== 'after') continue;
      const band = this.bandOf(p), row = this.nameOf(p), x = left + p.step * wide;
      if (last[band] === row.sign || x < (end[band] || 0)) continue;
      last[band] = row.sign;
      end[band] = x + 12;
      c.fillStyle = colors[row.color];
      c.fillText(row.sign, x, band * (bandHeight + gap) + bandHeight + 13);
    }
  }

  choose(i) {
    if (i < 0 || i >= this.points.length) return;
    this.chosen = i;
    this.draw();
    this.tell();
  }

  nearest(event) {
    const { bandHeight, gap, left } = ExplorationMap, forms = this.data.forms.length;
    const box = this.canvas.getBoundingClientRect(), wide = (box.width - left) / Math.max(1, this.data.steps.length);
    const y = event.clientY - box.top, band = Math.min(this.parts.length - 1, Math.floor(y / (bandHeight + gap)));
    const form = Math.min(forms - 1, Math.floor((y - band * (bandHeight + gap)) / (bandHeight / forms)));
    const step = (event.clientX - box.left - left) / wide;
    let best = -1, least = Infinity;
    this.points.forEach((p, i) => {
      if (this.bandOf(p) !== band) return;
      const far = Math.abs(p.step + .5 - step) * 10 + Math.abs(p.form - form);
      if (far < least) least = far, best = i;
    });
    return best;
  }

  // Left and right: the same form of the neighbouring operation; up and down: the neighbouring form.
  key(event) {
    const { points, chosen } = this;
    const by = { ArrowLeft: -1, ArrowRight: 1 }[event.key];
    const at = { ArrowUp: chosen - 1, ArrowDown: chosen + 1, Home: 0, End: points.length - 1 }[event.key];
    if (by === undefined && at === undefined) return;
    event.preventDefault();
    if (at !== undefined) return this.choose(at);
    const from = points[chosen];
    let i = chosen + by;
    while (points[i] && (points[i].step === from.step || points[i].form !== from.form) && Math.abs(points[i].step - from.step) < 2) i += by;
    if (points[i]) this.choose(i);
  }
}
