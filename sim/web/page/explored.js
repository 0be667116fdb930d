// The map of the camera's last exploration. A point of it opens as a further camera.

const mostBroken = 5; // shown

class ExploredView {
  constructor(camera) {
    this.camera = camera;
    this.note = el('p', { class: 'quiet' });
    this.broken = el('ul', { class: 'plain' });
    this.place = el('div');
    this.button = el('button', { type: 'button', disabled: true, onclick: () => this.open(this.map.pointName()) }, 'Open this point');
    this.said = el('p', { class: 'said', role: 'status' });
    this.root = card('Exploration', null, this.note, this.broken, this.place, frozen ? null : el('div', { class: 'row' }, this.button), this.said);
  }

  draw() {
    const data = this.camera.exploration;
    this.map = data && !data.wrong ? new ExplorationMap(data, point => this.open(point)) : null;
    this.place.replaceChildren(...(this.map ? [this.map.root] : []));
    this.button.disabled = !this.map || !this.map.points.length;
    say(this.note, this.map ? `${data.command}: ${this.map.summary()}` : data ? `The map cannot be shown: ${data.wrong}.`
      : `No exploration yet. “vcam explore ${this.camera.head.name} -- upgrade /tmp/pkg” tries each cut of the power and leaves its map here.`);
    const broken = this.map ? data.broken : [];
    fill(this.broken, broken.slice(0, mostBroken).map(b => `✖ ${b.text}: ${b.point}: ${b.what}`)
      .concat(broken.length > mostBroken ? [`and ${broken.length - mostBroken} more`] : this.map && !broken.length ? ['✔ Every promise was kept.'] : []));
  }

  async open(point) {
    if (frozen || this.button.disabled) return;
    this.button.disabled = true;
    say(this.said, `making a camera that stands at ${point} …`);
    this.said.className = 'said';
    try {
      say(this.said, await act(this.camera, { action: 'open-point', point }));
    } catch (e) {
      say(this.said, e.message);
      this.said.className = 'said bad';
    }
    this.button.disabled = false;
  }
}
