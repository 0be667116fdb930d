// Puts the page together and keeps it up to date.

const phases = [
  [/CFlash_Erase\].*\/dev\/(mtd\d)/, m => ({ text: 'erasing ' + m[1], part: m[1], state: 'e', step: 0 })],
  [/CFlash_NWrite\].*size : (\d+)/, (m, p) => ({ text: 'writing ' + (p.part || 'flash') + ', ' + size(+m[1]), part: p.part, state: 'n', bytes: +m[1], step: 1 })],
  [/CFlash_Confirm\]/, (m, p) => ({ text: 'comparing ' + (p.part || 'flash'), part: p.part, step: 2 })],
  [/Upgrade complete/, () => ({ text: 'upgrade complete, restarting programs' })],
  [/Upgrade fail|fail/i, m => ({ text: m.input })]
];

// An upgrade erases, writes and compares mtd1, mtd2 and mtd3 in this order; a package may leave partitions out.
function stepOf(phase) {
  const place = ['mtd1', 'mtd2', 'mtd3'].indexOf(phase.part);
  return phase.step === undefined || place < 0 ? '' : `step ${3 * place + phase.step + 1} of 9: `;
}

// How a run ended, as the head's outcome names it.
const endSigns = { never: '■', good: '✔', bad: '✖', cut: '✖', ended: '■' };
const endPills = { never: '■ off', good: '✔ off, upgraded', bad: '✖ off, failed', cut: '✖ off, broken off', ended: '■ off' };

class Camera {
  constructor(index) {
    this.index = index;
    this.events = [];
    this.replay = null;
    this.speeds = [];
    this.build();
  }

  build() {
    this.name = el('h2');
    this.pill = el('span', { class: 'pill never', role: 'status' });
    this.command = el('span', { class: 'quiet' });
    this.phase = el('div', { class: 'phase' }, this.phaseText = el('span'), this.bar = el('progress', { max: 1, value: 0, 'aria-label': 'progress of the partition' }));
    this.facts = Object.fromEntries(['Camera time', 'Clock', 'Watchdog', 'Longest gap', 'Processes'].map(n => [n, el('span', {}, '–')]));
    this.flashView = new FlashView(this);
    this.timeView = new TimeView(this);
    this.boardView = new BoardView(this);
    this.soundView = new SoundView(this);
    this.logView = new LogView(this);
    this.exploredView = new ExploredView(this);
    this.actionView = frozen ? null : new ActionView(this);
    const head = el('section', { class: 'card' }, el('div', { class: 'title' }, this.name, this.pill, this.command),
      el('div', { class: 'facts' }, ...Object.entries(this.facts).map(([n, node]) => el('div', { class: 'fact' }, el('b', {}, n), node))), this.phase);
    this.root = el('article', { class: 'camera' }, head, el('div', { class: 'columns' },
      el('div', { class: 'column' }, this.flashView.root, this.timeView.root, this.logView.root, this.exploredView.root),
      el('div', { class: 'column' }, this.actionView && this.actionView.root, this.boardView.root, this.soundView.root)));
  }

  take(event) {
    if (event.restart) {
      this.events = [];
      this.replay = null;
      this.logView.clear();
    }
    for (const section of ['head', 'time', 'flash', 'board', 'sound', 'serial', 'faults', 'exploration'])
      if (section in event) this[section] = event[section];
    if (event.flash) this.measure();
    for (const kind of ['journal', 'log', 'feeds']) if (event[kind]) addEvents(this, kind, event[kind]);
    // A cut from outside is in no record of the camera.
    if (this.head && !this.head.running && this.head.ending === 'powercut' && !this.events.some(e => e.source === 'power'))
      this.events.push({ time: this.time.seconds, source: 'power', text: 'cut' });
    for (const kind of ['journal', 'log', 'console']) if (event[kind]) this.logView.add(kind, event[kind]);
    if (event.restart && (event.console || []).length) this.logView.show('console');
    if (this.head) this.redraw(event);
  }

  // Blocks that have changed in the last seconds, for the speed.
  measure() {
    const maps = Object.fromEntries(this.flash.map(p => [p.name, p.map]));
    let changed = 0;
    for (const p of this.flash) {
      const before = this.maps ? this.maps[p.name] : p.map;
      for (let i = 0; i < p.map.length; ++i) if (p.map[i] !== before[i]) changed += p.erase_size;
    }
    this.maps = maps;
    this.speeds.push({ at: performance.now(), bytes: changed });
  }

  speed() {
    const now = performance.now();
    this.speeds = this.speeds.filter(s => now - s.at < 3000);
    const bytes = this.speeds.reduce((n, s) => n + s.bytes, 0);
    return this.speeds.length > 1 ? bytes / (now - this.speeds[0].at) * 1000 : 0;
  }

  // The end of the last run: a sign and a colour for its kind, and the bar as far as the step had come.
  drawEnd() {
    const { kind, text, share } = this.head.outcome;
    say(this.phaseText, `${endSigns[kind]} ${text}` + (this.head.cause ? ', by the fault ' + this.head.cause : ''));
    this.phase.className = 'phase ' + kind;
    this.bar.value = Math.max(share, 0);
    this.bar.classList.toggle('unseen', share < 0);
  }

  drawPhase() {
    if (!this.head.running && this.replay === null) return this.drawEnd();
    let phase = { text: '' };
    const until = this.replay === null ? Infinity : this.replay;
    for (const e of this.events) {
      if (e.time > until) break;
      if (e.source === 'log' || e.source === 'mtd')
        for (const [pattern, make] of phases) {
          const match = e.text.match(pattern);
          if (match) { phase = { ...make(match, phase) }; break; }
        }
      else if (e.source === 'system') phase = { text: e.text, part: phase.part };
    }
    let share = 0, text = stepOf(phase) + phase.text;
    const part = phase.state && this.flash.find(p => p.name === phase.part);
    if (part) {
      const map = mapAt(this, part, this.replay), total = phase.state === 'e' ? map.length : Math.ceil(phase.bytes / part.erase_size);
      const blank = Array.from(map).filter(c => c === 'e' || c === 'b').length; // written: what was erased just before holds something, new or as it was
      const done = phase.state === 'e' ? blank : map.length - blank;
      share = Math.min(1, done / total);
      const speed = this.replay === null ? this.speed() : 0;
      text += `: ${Math.round(100 * share)} %` + (speed > 0 && share < 1 ? `, ${size(speed)}/s, ${Math.ceil((total - done) * part.erase_size / speed)} s left` : '');
    }
    say(this.phaseText, text || 'running');
    this.phase.className = 'phase';
    this.bar.value = share;
    this.bar.classList.toggle('unseen', !part);
  }

  drawHead() {
    const kind = this.head.outcome.kind;
    say(this.name, this.head.name + ' · ' + this.head.model);
    say(this.pill, this.head.running ? '▶ running' : endPills[kind]);
    this.pill.className = 'pill ' + (this.head.running ? 'running' : kind);
    say(this.command, this.head.command);
    const w = this.time.watchdog;
    say(this.facts['Camera time'], seconds(this.time.seconds));
    say(this.facts.Clock, this.time.clock || 'not started');
    say(this.facts.Watchdog, w.fired ? 'has reset the camera' : w.armed ? `armed, ${Math.max(0, w.timeout - this.time.since_feed).toFixed(1)} of ${w.timeout} s left` : 'off');
    say(this.facts['Longest gap'], w.feeds ? `${seconds(w.longest_gap)} over ${w.feeds} feeds` : 'no feeds');
    say(this.facts.Processes, this.head.processes.length ? this.head.processes.length + ': ' + this.head.processes.at(-1).command : 'none');
    this.facts.Processes.title = this.head.processes.map(p => '  '.repeat(p.depth) + p.command).join('\n');
    this.root.setAttribute('aria-label', 'camera ' + this.head.name);
  }

  redraw(event) {
    this.drawHead();
    this.drawPhase();
    if (!event || event.flash || event.head || event.journal) this.flashView.draw();
    this.timeView.draw();
    if (!event || event.board || event.serial || event.head || event.journal) this.boardView.draw();
    if (!event || 'sound' in event) this.soundView.draw();
    if (event && 'exploration' in event) this.exploredView.draw();
    this.logView.draw();
    if (this.actionView) this.actionView.draw();
  }
}

function lists() {
  const list = (id, words) => document.body.append(el('datalist', { id }, ...words.map(w => el('option', { value: w }))));
  list('applets', ['upgrade /tmp/pkg -v', 'xupgrade -i -b -r 5140', 'load_drv', 'xtime', 'test_led', 'test_key', 'test_dio', 'test_rs485', 'test_rs232', 'test_sdcard', 'test_usb', 'test_rtc', 'test_send_watchdog', 'test_audio 5000', 'get_cb_cam_info', 'sleep 60']);
  list('effects', effects);
  list('farends', ['nothing', 'loopback', 'loopback wrong@17', 'loopback lost@9', 'block', 'block late=3500']);
  list('wirings', ['4.0 wire 5.0', '4.1 stuck 0', '8.1 level 1', '8.1 press +0.5 0.3 4']);
}

async function begin() {
  readColors();
  known = frozen ? frozen.known : JSON.parse(await ask('/known', {}));
  lists();
  const cameras = [];
  const add = () => { // a point of an exploration opens as a further camera
    cameras.push(new Camera(cameras.length));
    document.getElementById('cameras').append(cameras.at(-1).root);
  };
  known.cameras.forEach(add);
  matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => { readColors(); cameras.forEach(c => { if (c.head) c.redraw(); c.exploredView.map?.draw(); }); });
  const link = document.getElementById('link');
  const take = event => {
    while (cameras.length <= event.camera) add();
    if (event.head) known.cameras[event.camera] = event.head.folder;
    const camera = cameras[event.camera];
    if (event.lost) { link.className = 'lost'; say(link, known.cameras[event.camera] + ' cannot be read: ' + event.lost); return; }
    camera.take(event);
  };
  if (frozen) {
    frozen.events.forEach(take);
    say(link, 'frozen');
    document.title = cameras[0].head.name + ', frozen';
    requestAnimationFrame(() => setTimeout(() => { document.documentElement.dataset.height = Math.ceil(document.body.getBoundingClientRect().bottom); }, 300)); // for a picture of the whole page
    return;
  }
  const source = new EventSource(address('/events', {}));
  source.onopen = () => { link.className = ''; say(link, 'live'); };
  source.onerror = () => { link.className = 'lost'; say(link, 'no connection to vcam web; it will be tried again'); };
  source.onmessage = message => { if (link.className && source.readyState === 1) { link.className = ''; say(link, 'live'); } take(JSON.parse(message.data)); };
}

begin().catch(e => { const link = document.getElementById('link'); link.className = 'lost'; say(link, e.message); });
