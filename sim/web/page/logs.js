// Console, system log and journal, as they are.

// An upgrade logs each step as an alert; only lines that speak of a failure are marked as one.
const failing = /fail|error|cannot|can't|unable|refused|corrupt|mismatch|differ/i;
const mostLines = 4000, levels = ['emerg', 'alert', 'crit', 'err', 'warning', 'notice', 'info', 'debug'];

class LogView {
  constructor(camera) {
    this.camera = camera;
    this.kinds = { console: 'Console', log: 'System log', journal: 'Journal' };
    this.boxes = {};
    this.tabs = el('div', { class: 'tabs', role: 'tablist', 'aria-label': 'texts', onkeydown: e => this.key(e) });
    const id = 'camera' + camera.index + '-';
    for (const [kind, name] of Object.entries(this.kinds)) {
      this.tabs.append(el('button', { role: 'tab', id: id + kind + '-tab', 'aria-controls': id + kind, onclick: () => this.show(kind) }, name));
      this.boxes[kind] = el('div', { class: 'log', id: id + kind, role: 'tabpanel', tabindex: 0, 'aria-labelledby': id + kind + '-tab' });
    }
    this.root = card('Texts', null, this.tabs, ...Object.values(this.boxes));
    this.show('log');
  }

  key(event) {
    const step = { ArrowLeft: -1, ArrowRight: 1 }[event.key];
    if (!step) return;
    const kinds = Object.keys(this.kinds), next = kinds[(kinds.indexOf(this.shown) + step + kinds.length) % kinds.length];
    this.show(next);
    this.tabs.children[kinds.indexOf(next)].focus();
  }

  show(kind) {
    this.shown = kind;
    Object.keys(this.kinds).forEach((k, i) => {
      this.tabs.children[i].setAttribute('aria-selected', k === kind);
      this.tabs.children[i].tabIndex = k === kind ? 0 : -1;
      this.boxes[k].classList.toggle('gone', k !== kind);
    });
    this.boxes[kind].scrollTop = this.boxes[kind].scrollHeight;
  }

  clear() { for (const box of Object.values(this.boxes)) box.replaceChildren(); }

  row(kind, text) {
    if (kind === 'console') return el('div', {}, text || '\u00a0');
    const event = parseEvent(kind, text);
    if (!event) return el('div', {}, text);
    const level = kind === 'log' ? levels[event.priority] : event.source;
    const node = el('div', { class: event.priority <= 3 && event.source === 'log' && failing.test(event.text) ? 'err' : undefined }, el('time', {}, event.time.toFixed(3).padStart(9)), '  ' + level.padEnd(7) + ' ' + event.text);
    node.at = event.time;
    return node;
  }

  add(kind, lines) {
    const box = this.boxes[kind], low = box.scrollTop + box.clientHeight > box.scrollHeight - 30;
    box.append(...lines.map(l => this.row(kind, l)));
    while (box.childElementCount > mostLines) box.firstChild.remove();
    if (low) box.scrollTop = box.scrollHeight;
  }

  // Lines after the time of the replay are dimmed.
  draw() {
    if (this.dimmed === this.camera.replay) return;
    this.dimmed = this.camera.replay;
    for (const kind of ['log', 'journal'])
      for (const node of this.boxes[kind].children) node.classList.toggle('later', this.dimmed !== null && node.at > this.dimmed);
    const box = this.boxes[this.shown], later = this.dimmed === null ? null : box.querySelector('.later');
    if (later) box.scrollTop = later.offsetTop - box.offsetTop - box.clientHeight / 2;
  }
}
