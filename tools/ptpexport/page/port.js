// One port in a dialog: its settings, counters with their rates, events, and the delay of its link.
import { Curve } from './curve.js';
import { fetchJson, fetchState } from './mirror.js';
import { delayOf } from './ports.js';
import { inUrl } from './path.js';
import { cardOf, clockText, countText, element, intervalText, stateOf, timeText, wordsOf }
   from './text.js';

/// How many seconds of changes a rate is measured over.
const rateSpan = 5;

function isCounter(name, value) {
   return typeof value === 'number' &&
      /Received|Sent|Missed|Count$|lostResponses|Counter$/.test(name);
}

export class Port {
   constructor() {
      this.dialog = document.querySelector('#port');
      this.curve = new Curve(document.querySelector('#portDelay'), 'delay');
      this.key = null;
      document.querySelector('#close').addEventListener('click', () => this.dialog.close());
      this.dialog.addEventListener('click', (event) => {
         if (event.target === this.dialog) {
            this.dialog.close();
         }
      });
      document.querySelector('#zeros').addEventListener('change', (event) => {
         document.querySelector('#counters').classList.toggle('all', event.target.checked);
      });
      this.dialog.addEventListener('close', () => { this.key = null; });
   }

   async open(mirror, key) {
      this.mirror = mirror;
      this.key = key;
      this.samples = [];
      document.querySelector('#portTitle').textContent = key;
      this.curve.points = [];
      this.dialog.showModal();
      this.update();
      await Promise.all([this.historyIs(key), this.masters(key)]);
   }

   async historyIs(key) {
      const query = `root=${encodeURIComponent(this.mirror.root)}`;
      const history = await fetchJson(`history/${inUrl(key)}?${query}`).catch(() => ({}));
      if (this.key !== key) {
         return;
      }
      const values = history.peerMeanPathDelay ?? [];
      document.querySelector('#portCurve').hidden = !values.some((value) => value !== null);
      if (values.length) {
         this.curve.historyIs(history.start, values);
      }
      this.events = history.events ?? [];
      this.showEvents();
   }

   /// The masters that the port hears are not followed by the page: they are fetched once.
   async masters(key) {
      const intf = await fetchState(`${this.mirror.root}.intfStatus[${key}]`).catch(() => undefined);
      this.heard = intf?.foreignMasterDS ? Object.keys(intf.foreignMasterDS).length : undefined;
      this.update();
   }

   /// A change of an attribute of this port.
   changed(name, value) {
      if (name === 'portState' || name === 'faultyFlag') {
         this.events = [...(this.events ?? []), { time: Date.now() / 1000, path: name, value }];
         this.showEvents();
      }
   }

   showEvents() {
      const list = document.querySelector('#events');
      const events = (this.events ?? []).slice(-50).reverse();
      list.replaceChildren(...(events.length ? events.map((event) => element('li', {},
         element('time', {}, clockText(event.time * 1000)), `${wordsOf(event.path.split('.').at(-1))}: `,
         event.path.endsWith('portState') ? stateOf(event.value) : String(event.value)))
         : [element('li', {}, 'none in the last hour')]));
   }

   /// Writes what the port is now. Called about once a second while the dialog is open.
   update() {
      const port = this.key !== null && this.mirror.state.portDS[this.key];
      if (!port) {
         return;
      }
      document.querySelector('#portState').replaceChildren(stateOf(port.portState));
      document.querySelector('#portCards').replaceChildren(
         cardOf('Port', `${port.portIdentity.portNumber}`, [
            ['role', port.role], ['transport', port.transportMode],
            ['VLAN', port.vlanId === 'none' ? '–' : `${port.vlanId}`],
            ['enabled', port.enabled ? 'yes' : 'no'], ['fault', port.faultyFlag ? 'yes' : 'no']]),
         cardOf('Messages', `Sync ${intervalText(port.logSyncInterval)}`, [
            ['Announce', intervalText(port.logAnnounceInterval)],
            ['Delay_Req', intervalText(port.logMinDelayReqInterval)],
            ['Announce timeout', `${port.announceReceiptTimeout}`]]),
         cardOf('Link', timeText(delayOf(this.key, port, this.mirror.state.currentDS)), [
            ['mechanism', port.delayMechanism],
            ['masters heard', countText(this.heard)],
            ['local priority', `${port.localPriority}`]]));
      this.showCounters(port);
      this.showDelay(port);
   }

   showDelay(port) {
      const measured = port.delayMechanism === 'p2p';
      const delay = measured ? Number(port.peerMeanPathDelay) : null;
      document.querySelector('#portDelayNow').textContent = measured ? timeText(delay) : '';
      if (this.curve.points.length) {
         this.curve.add(Math.floor(Date.now() / 1000), delay);
      }
   }

   showCounters(port) {
      const now = performance.now() / 1000;
      const counters = Object.entries(port).filter(([name, value]) => isCounter(name, value));
      this.samples.push({ now, values: Object.fromEntries(counters) });
      while (this.samples.length > 1 && this.samples[0].now < now - rateSpan) {
         this.samples.shift();
      }
      const first = this.samples[0];
      const zeros = counters.filter(([, value]) => value === 0).length;
      document.querySelector('#zeroCount').textContent = `${zeros} at zero`;
      document.querySelector('#counters').replaceChildren(...counters.map(([name, value]) => {
         const rate = now - first.now >= 1
            ? Math.max(0, value - (first.values[name] ?? value)) / (now - first.now) : 0;
         return element('tr', { class: value === 0 ? 'zero' : undefined },
            element('td', {}, wordsOf(name)), element('td', {}, countText(value)),
            element('td', {}, rate ? `${rate.toFixed(1)}/s` : ''));
      }));
   }
}
