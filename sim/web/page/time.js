// The run on a line of camera time, live or replayed.

const lanes = [
  { name: 'mtd0' }, { name: 'mtd1' }, { name: 'mtd2' }, { name: 'mtd3' },
  { name: 'watchdog', sources: ['watchdog', 'feed'] }, { name: 'commands', sources: ['system', 'mount', 'umount', 'reboot'] },
  { name: 'processes', sources: ['exec', 'kill'] }, { name: 'log', sources: ['log'] }, { name: 'drivers' }
];

// "<seconds> <pid> <source> <text>"; of the log "<seconds> <priority> <text>"
function parseEvent(kind, line) {
  const words = line.match(kind === 'log' ? /^(\S+) (\d+) (.*)$/ : /^(\S+) (\d+) (\S+) ?(.*)$/);
  if (!words) return null;
  const event = { time: parseFloat(words[1]), source: kind === 'log' ? 'log' : words[3], text: words[kind === 'log' ? 3 : 4].replace(/(\\n)+$/, '') };
  if (kind === 'log') event.priority = +words[2] & 7;
  if (kind === 'feeds') {
    if (!event.text.startsWith('feed')) return null;
    event.source = 'feed';
  }
  const flash = event.source === 'mtd' && event.text.match(/^(mtd\d) (erase|write) 0x([0-9a-f]+)-0x([0-9a-f]+)$/);
  if (flash) event.flash = { name: flash[1], what: flash[2], begin: parseInt(flash[3], 16), end: parseInt(flash[4], 16) };
  return event;
}

function addEvents(camera, kind, lines) {
  for (const line of lines) {
    const event = parseEvent(kind, line);
    if (event) camera.events.push(event);
  }
  camera.events.sort((a, b) => a.time - b.time);
  let before = firstTime(camera);
  for (const event of camera.events) {
    event.since = before;
    if (event.source !== 'feed') before = event.time;
  }
}

function firstTime(camera) {
  const first = camera.events.find(e => e.source !== 'feed');
  return first ? Math.min(first.time, camera.head.began) : camera.head.running ? camera.head.began : 0;
}
function lastTime(camera) {
  const last = camera.events.length ? camera.events[camera.events.length - 1].time : 0;
  return Math.max(last, camera.head.running ? camera.time.seconds : 0);
}

class TimeView {
  constructor(camera) {
    this.camera = camera;
    this.zoom = 1;
    this.from = 0; // share of the run at the left edge
    this.playing = null;
    this.canvas = el('canvas', {
      tabindex: 0, role: 'img', 'aria-label': 'the run on a line of camera time',
      onwheel: e => { if (e.ctrlKey || e.shiftKey) { e.preventDefault(); this.zoomAt(e.deltaY < 0 ? 1.25 : .8, e.offsetX / this.canvas.clientWidth); } },
      onmousemove: e => this.hover(e.offsetX, e.offsetY), onmouseleave: () => say(this.hint, ''),
      onmousedown: e => { this.grab = { x: e.offsetX, from: this.from }; }, onclick: e => this.click(e), onkeydown: e => this.key(e)
    });
    window.addEventListener('mouseup', () => { this.grab = null; });
    this.hint = el('p', { class: 'hint', 'aria-live': 'polite' });
    this.slider = el('input', { type: 'range', min: 0, max: 1000, value: 1000, 'aria-label': 'time of the replay', oninput: () => this.seek(this.slider.value / 1000) });
    this.play = el('button', { onclick: () => this.toggle() }, 'Replay');
    this.speed = el('select', { 'aria-label': 'pace of the replay' }, ...[.1, .3, 1, 3, 10].map(n => el('option', { value: n, selected: n === 1 }, '× ' + n)));
    this.note = el('small');
    this.root = card('Time', this.note, this.canvas, this.hint,
      el('div', { class: 'row' }, this.play, this.speed, this.slider,
        el('button', { onclick: () => this.zoomAt(1.6, .5), 'aria-label': 'zoom in' }, '+'), el('button', { onclick: () => this.zoomAt(1 / 1.6, .5), 'aria-label': 'zoom out' }, '−'),
        frozen ? null : el('button', { onclick: () => this.export() }, 'Trace file')));
    new ResizeObserver(() => this.draw()).observe(this.root);
  }

  span() {
    const begin = firstTime(this.camera), whole = Math.max(lastTime(this.camera) - begin, .001);
    return { begin: begin + this.from * whole, length: whole / this.zoom, whole, first: begin };
  }

  zoomAt(factor, place) {
    const zoom = Math.min(Math.max(this.zoom * factor, 1), 5000);
    this.from = Math.min(Math.max(this.from + place / this.zoom - place / zoom, 0), 1 - 1 / zoom);
    this.zoom = zoom;
    this.draw();
  }

  key(event) {
    const step = { ArrowLeft: -.1, ArrowRight: .1 }[event.key];
    if (event.key === '+') this.zoomAt(1.6, .5);
    if (event.key === '-') this.zoomAt(1 / 1.6, .5);
    if (!step) return;
    event.preventDefault();
    this.from = Math.min(Math.max(this.from + step / this.zoom, 0), 1 - 1 / this.zoom);
    this.draw();
  }

  seek(share) {
    const { first, whole } = this.span();
    this.camera.replay = share >= 1 ? null : first + share * whole;
    this.camera.redraw();
  }

  click(event) {
    if (this.moved) { this.moved = false; return; }
    if (event.offsetX < 74 || this.camera.head.running) return;
    const { begin, length, first, whole } = this.span();
    const time = begin + (event.offsetX - 74) / (this.canvas.clientWidth - 80) * length;
    this.slider.value = 1000 * (time - first) / whole;
    this.seek((time - first) / whole);
  }

  toggle() {
    if (this.playing) return this.stop();
    const { first, whole } = this.span();
    if (this.camera.replay === null) this.camera.replay = first;
    let last = performance.now();
    this.playing = setInterval(() => {
      const now = performance.now();
      this.camera.replay += (now - last) / 1000 * this.speed.value;
      last = now;
      const share = (this.camera.replay - first) / whole;
      this.slider.value = 1000 * share;
      if (share >= 1) { this.camera.replay = null; this.stop(); }
      this.camera.redraw();
    }, 50);
    say(this.play, 'Pause');
  }

  stop() {
    clearInterval(this.playing);
    this.playing = null;
    say(this.play, 'Replay');
  }

  async export() {
    const bytes = await ask('/trace', { camera: this.camera.index });
    const link = el('a', { href: URL.createObjectURL(new Blob([bytes], { type: 'application/json' })), download: this.camera.head.name + '.trace.json' });
    link.click();
    URL.revokeObjectURL(link.href);
  }

  laneOf(event) {
    if (event.flash) return lanes.findIndex(l => l.name === event.flash.name);
    const found = lanes.findIndex(l => l.sources && l.sources.includes(event.source));
    return found < 0 ? lanes.length - 1 : found;
  }

  hover(x, y) {
    if (this.grab) {
      const from = this.grab.from - (x - this.grab.x) / (this.canvas.clientWidth - 80) / this.zoom;
      this.moved = this.moved || Math.abs(x - this.grab.x) > 4;
      this.from = Math.min(Math.max(from, 0), 1 - 1 / this.zoom);
      return this.draw();
    }
    const near = (this.drawn || []).filter(d => d.lane === Math.floor(y / 19) && x >= d.x - 4 && x <= d.x + d.width + 4);
    const best = near.sort((a, b) => Math.abs(a.x + a.width / 2 - x) - Math.abs(b.x + b.width / 2 - x))[0];
    say(this.hint, best ? seconds(best.event.time) + '  ' + best.event.source + '  ' + best.event.text + (near.length > 1 ? `  (and ${near.length - 1} more)` : '') : '');
  }

  draw() {
    if (!this.camera.head || !this.root.clientWidth) return;
    const style = getComputedStyle(this.root), width = this.root.clientWidth - parseFloat(style.paddingLeft) * 2;
    const height = 19 * lanes.length + 20, left = 74, c = drawBlock.colors;
    const pen = sharp(this.canvas, width, height), { begin, length, first } = this.span();
    const at = time => left + (time - begin) / length * (width - left - 6);
    pen.font = '11px system-ui, sans-serif';
    lanes.forEach((lane, i) => {
      pen.fillStyle = i % 2 ? c.card : c.well;
      pen.fillRect(0, i * 19, width, 19);
      pen.fillStyle = c.soft;
      pen.fillText(lane.name, 4, i * 19 + 13);
    });
    if (lastTime(this.camera) > 0) this.axis(pen, begin, length, at, width, height);
    pen.save();
    pen.beginPath();
    pen.rect(left, 0, width - left, height);
    pen.clip();
    this.gap(pen, at, first);
    this.drawn = [];
    for (const event of this.camera.events) {
      if (event.time < begin - .001 || (event.flash ? event.since : event.time) > begin + length || event.time < first) continue;
      this.mark(pen, event, at, height);
    }
    if (this.camera.replay !== null) {
      pen.fillStyle = c.accent;
      pen.fillRect(at(this.camera.replay) - 1, 0, 2, height);
    }
    pen.restore();
    const run = lastTime(this.camera) - first;
    say(this.note, run > 0 ? (this.camera.replay !== null ? 'replay at ' + seconds(this.camera.replay - first) + ' of ' : '') + seconds(run) + ' of camera time' : 'no run yet');
    if (this.camera.replay === null) this.slider.value = 1000;
    this.play.disabled = this.slider.disabled = this.camera.head.running || !this.camera.events.length;
  }

  axis(pen, begin, length, at, width, height) {
    const raw = length / Math.max(2, (width - 80) / 80), power = 10 ** Math.floor(Math.log10(raw));
    const step = [1, 2, 5, 10].map(n => n * power).find(n => n >= raw);
    pen.strokeStyle = drawBlock.colors.line;
    pen.lineWidth = 1;
    pen.fillStyle = drawBlock.colors.soft;
    for (let t = Math.ceil(begin / step) * step; t <= begin + length; t += step) {
      pen.beginPath();
      pen.moveTo(at(t), 0);
      pen.lineTo(at(t), height - 16);
      pen.stroke();
      if (at(t) < width - 30) pen.fillText(+t.toFixed(6) + ' s', at(t) + 2, height - 4);
    }
  }

  // The longest time without a feed, with a bar and its length.
  gap(pen, at, first) {
    const feeds = this.camera.events.filter(e => e.source === 'feed' && e.time >= first);
    let longest = null;
    for (let i = 1; i < feeds.length; ++i)
      if (!longest || feeds[i].time - feeds[i - 1].time > longest[1] - longest[0]) longest = [feeds[i - 1].time, feeds[i].time];
    if (!longest) return;
    pen.fillStyle = drawBlock.colors.warn;
    pen.globalAlpha = .25;
    pen.fillRect(at(longest[0]), 4 * 19 + 3, at(longest[1]) - at(longest[0]), 13);
    pen.globalAlpha = 1;
    pen.fillText((longest[1] - longest[0]).toFixed(2) + ' s', at(longest[0]) + 4, 4 * 19 + 13);
  }

  mark(pen, event, at, height) {
    const c = drawBlock.colors, lane = this.laneOf(event), y = lane * 19, x = at(event.flash ? event.since : event.time);
    const width = event.flash ? Math.max(at(event.time) - x, 3) : 2;
    pen.fillStyle = event.flash ? c[event.flash.what === 'erase' ? 'warn' : 'new'] : event.priority <= 3 ? c.bad : c.accent;
    if (event.flash) {
      pen.fillRect(x, y + 3, width, 13);
      pen.fillStyle = c.card;
      if (width > 12) pen.fillText(event.flash.what === 'erase' ? 'E' : 'W', x + 3, y + 13);
    } else pen.fillRect(x, y + 4, 2, 11);
    const end = event.source === 'power' || event.source === 'reboot' || (event.source === 'watchdog' && event.text === 'reset');
    if (end) {
      pen.fillStyle = event.source === 'reboot' ? c.soft : c.bad;
      pen.fillRect(x, 0, 2, height - 16);
      pen.fillText(event.source === 'power' ? '⚡ cut' : event.text, x - 40, 12);
    }
    this.drawn.push({ event, lane, x, width });
  }
}
