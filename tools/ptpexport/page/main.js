// The page of ptpexport: joins the mirror of a clock with what shows it.
import { clockCards } from './cards.js';
import { Curve } from './curve.js';
import { Mirror, fetchJson } from './mirror.js';
import { Port } from './port.js';
import { Ports } from './ports.js';
import { clockText, element, timeText } from './text.js';

/// Changes are shown at most this often, in milliseconds, however many arrive.
const pace = 250;

const spans = [['5 min', 300], ['15 min', 900], ['1 h', 3600]];

class Page {
   constructor() {
      this.offset = new Curve(document.querySelector('#offset'), 'offset');
      this.delay = new Curve(document.querySelector('#delay'), 'delay');
      this.port = new Port();
      this.ports = new Ports((key) => this.port.open(this.mirror, key));
      this.dirty = new Set();
      this.cardsDirty = false;
      this.fetched = false;
      this.spanIs(3600);
      setInterval(() => this.show(), pace);
      setInterval(() => this.tick(), 1000);
   }

   async start() {
      try {
         const { roots } = await fetchJson('healthz?always');
         const clocks = roots.filter((root) => root.type === 'Ptp::Status').map((root) => root.name);
         if (!clocks.length) {
            throw new Error('the source offers no status of a clock; looking again');
         }
         this.choose(clocks);
      } catch (error) {
         this.onLink({ live: false, text: error.message });
         setTimeout(() => this.start(), 2000);
      }
   }

   choose(clocks) {
      const wanted = decodeURIComponent(location.hash.slice(1));
      const list = document.querySelector('#clocks');
      list.replaceChildren(...clocks.map((name) => element('option', { value: name }, name)));
      list.value = clocks.includes(wanted) ? wanted : clocks[0];
      list.onchange = () => {
         location.hash = encodeURIComponent(list.value);
         this.clockIs(list.value);
      };
      document.querySelector('#chooser').hidden = clocks.length < 2;
      this.clockIs(list.value);
   }

   clockIs(name) {
      this.mirror?.close();
      document.querySelector('#clockName').textContent = name;
      document.title = `${name} – PTP clock`;
      this.mirror = new Mirror(name, this);
   }

   async onLoad() {
      this.fetched = true;
      this.dirty.clear();
      this.ports.mirrorIs(this.mirror);
      this.cardsDirty = true;
      this.show();
      const history = await fetchJson(`history?root=${encodeURIComponent(this.mirror.root)}`)
         .catch(() => null);
      if (history) {
         this.offset.historyIs(history.start, history.offsetFromMaster);
         this.delay.historyIs(history.start, history.meanPathDelay);
      }
   }

   onChange(parts, value) {
      if (parts[0] === 'portDS' && parts.length > 1) {
         if (parts.length === 2) {
            this.ports.mirrorIs(this.mirror);
            return;
         }
         this.dirty.add(parts[1]);
         if (parts[1] === this.port.key) {
            this.port.changed(parts[2], value);
         }
         return;
      }
      this.cardsDirty = true;
      const last = this.mirror.state.currentDS?.lastUpdatePortKey;
      if (parts[0] === 'currentDS' && last) {
         this.dirty.add(last.vlanId === 'none' ? last.intf : `${last.intf},${last.vlanId}`);
      }
   }

   /// Says whether what is shown is live. What was known stays, paled, while the source is away.
   onLink({ live, text, since, reason }) {
      this.live = live;
      const link = document.querySelector('#link');
      link.className = `link ${live ? 'live' : 'lost'}`;
      link.textContent = live ? 'live' : 'not live';
      const banner = document.querySelector('#banner');
      banner.hidden = live;
      banner.textContent = live ? '' : text +
         (since ? ` since ${clockText(Date.parse(since))}` : '') + (reason ? `: ${reason}` : '');
      document.body.classList.toggle('stale', !live);
   }

   show() {
      if (!this.fetched || document.hidden) {
         return;
      }
      if (this.cardsDirty) {
         this.cardsDirty = false;
         document.querySelector('#cards').replaceChildren(...clockCards(this.mirror.state));
         const current = this.mirror.state.currentDS;
         document.querySelector('#offsetNow').textContent = timeText(current?.offsetFromMaster);
         document.querySelector('#delayNow').textContent = timeText(current?.meanPathDelay);
      }
      if (this.dirty.size) {
         this.dirty.forEach((key) => this.ports.update(key));
         this.dirty.clear();
         this.ports.count();
      }
   }

   /// A new point of each curve; a gap while the source is away.
   tick() {
      const current = this.fetched && this.live ? this.mirror.state.currentDS : undefined;
      if (this.fetched && this.offset.points.length) {
         const second = Math.floor(Date.now() / 1000);
         this.offset.add(second, current ? Number(current.offsetFromMaster) : null);
         this.delay.add(second, current ? Number(current.meanPathDelay) : null);
      }
      this.port.update();
   }

   spanIs(seconds) {
      this.offset.spanIs(seconds);
      this.delay.spanIs(seconds);
      document.querySelector('#spans').replaceChildren(...spans.map(([text, span]) => element('button', {
         type: 'button',
         'aria-pressed': String(span === seconds),
         onclick: () => this.spanIs(span),
      }, text)));
   }
}

new Page().start();
