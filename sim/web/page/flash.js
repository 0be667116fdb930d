// The flash, erase block by erase block. Every state has a colour and a shape.

const uses = { mtd0: 'boot loader', mtd1: 'kernel', mtd2: 'root file system', mtd3: 'settings' };
const blockNames = { o: 'unchanged', n: 'new', e: 'erased', t: 'torn', b: 'bad' };

function drawBlock(pen, state, x, y, side) {
  const fill = { o: 'old', n: 'new', e: 'erased', t: 'torn', b: 'dead' }[state];
  const inset = side > 8 ? 1 : 0.5;
  pen.fillStyle = drawBlock.colors[fill];
  pen.fillRect(x + inset, y + inset, side - 2 * inset, side - 2 * inset);
  pen.lineWidth = side > 10 ? 1.6 : 1;
  pen.strokeStyle = drawBlock.colors.line;
  pen.beginPath();
  if (state === 'e') pen.rect(x + inset + .5, y + inset + .5, side - 2 * inset - 1, side - 2 * inset - 1);
  if (state !== 'e') pen.strokeStyle = drawBlock.colors.card;
  const a = side * .28, b = side * .72;
  if (state === 'n') pen.rect(x + side / 2 - side * .1, y + side / 2 - side * .1, side * .2, side * .2);
  if (state === 't') { pen.moveTo(x + side * .65, y + side * .1); pen.lineTo(x + a, y + side * .55); pen.lineTo(x + b, y + side * .45); pen.lineTo(x + side * .35, y + side * .9); }
  if (state === 'b') { pen.moveTo(x + a, y + a); pen.lineTo(x + b, y + b); pen.moveTo(x + b, y + a); pen.lineTo(x + a, y + b); }
  pen.stroke();
}

function readColors() {
  drawBlock.colors = {};
  for (const name of ['old', 'new', 'erased', 'torn', 'dead', 'line', 'card', 'text', 'soft', 'accent', 'bad', 'on', 'warn', 'well']) drawBlock.colors[name] = color(name);
}

// The map of a partition at a time of the run: stretches of the record laid over what stood there before. A stretch
// spreads over the time since the record's line in front of it.
function mapAt(camera, part, time) {
  if (time === null || !part.before || time >= lastTime(camera)) return part.map;
  const map = Array.from(part.before);
  for (const e of camera.events) {
    if (!e.flash || e.flash.name !== part.name) continue;
    if (e.since > time) break;
    const done = e.time > time ? (time - e.since) / (e.time - e.since || 1) : 1;
    const first = Math.floor(e.flash.begin / part.erase_size);
    const count = Math.ceil((e.flash.end - e.flash.begin) * done / part.erase_size);
    for (let i = first; i < first + count && i < map.length; ++i)
      if (map[i] !== 'b') map[i] = e.flash.what === 'erase' ? 'e' : 'n';
  }
  return map.join('');
}

function summary(map) {
  const counts = {};
  for (const c of map) counts[c] = (counts[c] || 0) + 1;
  return Object.keys(blockNames).filter(c => counts[c]).map(c => counts[c] + ' ' + blockNames[c]).join(', ');
}

class FlashView {
  constructor(camera) {
    this.camera = camera;
    this.parts = [];
    this.list = el('div');
    this.note = el('small');
    this.hint = el('p', { class: 'hint', 'aria-live': 'polite' });
    const legend = el('div', { class: 'legend' });
    this.samples = Object.entries(blockNames).map(([state, name]) => {
      const canvas = el('canvas', { 'aria-hidden': 'true' });
      legend.append(el('span', {}, canvas, name));
      return { canvas, state };
    });
    this.root = card('Flash', this.note, this.list, legend, this.hint);
    new ResizeObserver(() => this.draw()).observe(this.list);
  }

  build() {
    this.list.replaceChildren();
    this.parts = this.camera.flash.map((part, index) => {
      const canvas = el('canvas', {
        tabindex: 0, role: 'img', onclick: e => this.open(index, this.hit(index, e)),
        onmousemove: e => this.point(index, this.hit(index, e)), onmouseleave: () => this.point(index, -1),
        onkeydown: e => this.key(index, e), onfocus: () => this.point(index, Math.max(this.parts[index].at, 0)),
        onblur: () => this.point(index, -1)
      });
      const counts = el('span');
      this.list.append(el('div', { class: 'part' }, el('h4', {}, `${part.name} · ${uses[part.name]} `, counts), canvas));
      return { canvas, counts, at: -1, columns: 1, side: 12, map: '', changed: [] };
    });
  }

  draw() {
    if (!this.camera.flash || !this.list.clientWidth) return;
    const shape = this.camera.flash.map(p => p.name + p.map.length).join();
    if (shape !== this.shape) this.build();
    this.shape = shape;
    const total = this.camera.flash.reduce((n, p) => n + p.map.length, 0);
    say(this.note, 'erase blocks of ' + [...new Set(this.camera.flash.map(p => size(p.erase_size)))].join(', '));
    this.camera.flash.forEach((part, i) => this.drawPart(part, this.parts[i], total));
    for (const { canvas, state } of this.samples) drawBlock(sharp(canvas, 16, 16), state, 0, 0, 16);
  }

  drawPart(part, view, total) {
    const map = mapAt(this.camera, part, this.camera.replay);
    const width = this.list.clientWidth;
    view.side = total < 400 ? 15 : total < 1500 ? 10 : 7;
    view.columns = Math.max(1, Math.floor(width / view.side));
    const pen = sharp(view.canvas, width, Math.ceil(map.length / view.columns) * view.side + 2);
    for (let i = 0; i < map.length; ++i)
      drawBlock(pen, map[i], i % view.columns * view.side, Math.floor(i / view.columns) * view.side, view.side);
    for (let i = 0; i < map.length; ++i) {
      const fresh = view.map.length === map.length && map[i] !== view.map[i] && this.camera.head.running;
      if (!fresh && i !== view.at) continue;
      pen.strokeStyle = drawBlock.colors[i === view.at ? 'accent' : 'on'];
      pen.lineWidth = 2;
      pen.strokeRect(i % view.columns * view.side + 1, Math.floor(i / view.columns) * view.side + 1, view.side - 2, view.side - 2);
    }
    view.map = map;
    const words = summary(map);
    say(view.counts, size(part.size) + ' ' + part.type.toUpperCase() + ': ' + words);
    if (view.canvas.getAttribute('aria-label') !== part.name + ': ' + words)
      view.canvas.setAttribute('aria-label', part.name + ': ' + words);
  }

  hit(index, event) {
    const view = this.parts[index];
    const column = Math.floor(event.offsetX / view.side), at = Math.floor(event.offsetY / view.side) * view.columns + column;
    return column < view.columns && at < view.map.length ? at : -1;
  }

  point(index, at) {
    const view = this.parts[index], part = this.camera.flash[index];
    if (view.at === at) return;
    view.at = at;
    say(this.hint, at < 0 ? '' : `${part.name} block ${at} at 0x${(at * part.erase_size).toString(16)}: ${blockNames[view.map[at]]}` + (frozen ? '' : '; Enter or a click opens it'));
    this.draw();
  }

  key(index, event) {
    const view = this.parts[index];
    const step = { ArrowLeft: -1, ArrowRight: 1, ArrowUp: -view.columns, ArrowDown: view.columns, Home: -1e9, End: 1e9 }[event.key];
    if (event.key === 'Enter') this.open(index, view.at);
    if (!step) return;
    event.preventDefault();
    this.point(index, Math.min(Math.max(view.at + step, 0), view.map.length - 1));
  }

  async open(index, at, piece = 0) {
    if (at < 0 || frozen) return;
    const part = this.camera.flash[index], dialog = document.getElementById('opened');
    const block = JSON.parse(await ask('/block', { camera: this.camera.index, partition: part.name, block: at, piece }));
    const pieces = Math.max(1, Math.floor(part.erase_size / 4096));
    const lines = block.bytes.match(/.{1,32}/g).map((hex, i) => {
      const bytes = hex.match(/../g), offset = block.offset + piece * 4096 + i * 16;
      const letters = bytes.map(b => { const c = parseInt(b, 16); return c > 31 && c < 127 ? String.fromCharCode(c) : '.'; });
      return offset.toString(16).padStart(8, '0') + '  ' + bytes.join(' ').padEnd(47) + '  ' + letters.join('');
    });
    dialog.replaceChildren(
      el('h3', { id: 'opened-title' }, `${part.name} block ${at}, ${blockNames[part.map[at]]}`),
      el('p', { class: 'quiet' }, `Part of ${block.belongs}. CRC-32 of the block: ${block.crc32}.`),
      el('ul', { class: 'plain' }, ...block.nodes.map(n => el('li', {}, '+0x' + n.offset.toString(16) + '  ' + n.text))),
      el('pre', { tabindex: 0, 'aria-label': 'bytes' }, lines.join('\n')),
      el('div', { class: 'row' },
        el('button', { disabled: piece === 0, onclick: () => this.open(index, at, piece - 1) }, 'Previous 4 KiB'),
        el('button', { disabled: piece + 1 >= pieces, onclick: () => this.open(index, at, piece + 1) }, 'Next 4 KiB'),
        el('span', { class: 'quiet' }, `${piece + 1} of ${pieces}`),
        el('button', { onclick: () => dialog.close() }, 'Close')));
    if (!dialog.open) dialog.showModal();
  }
}
