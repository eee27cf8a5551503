// All ports: a cell of the grid and a row of the table each, of which only what changes is written.
import { countText, element, stateOf, timeText } from './text.js';

const order = ['faulty', 'slave', 'uncalibrated', 'listening', 'preMaster', 'initializing', 'master',
   'passive', 'disabled'];

/// Lost messages and such; the counters of all that goes wrong at a port.
function lossesOf(port) {
   return Number(port.lostResponsesPeerDelay ?? 0) + Number(port.stpDiscardedRxMessagesCount ?? 0) +
      Number(port.stpDiscardedTxMessagesCount ?? 0) + Number(port.ptpDiscardedTxArpExpireCount ?? 0) +
      Number(port.corruptedRxManagementMessagesCount ?? 0);
}

function remarksOf(port) {
   const reasons = Object.entries(port.disabledReason ?? {}).filter(([, holds]) => holds)
      .map(([reason]) => reason);
   return [...(port.faultyFlag ? ['fault'] : []), ...reasons].join(', ');
}

/// The delay of a port's link, if the port measures it; the clock's, if the clock follows the port.
export function delayOf(key, port, current) {
   if (port.delayMechanism === 'p2p') {
      return port.peerMeanPathDelay;
   }
   return isFollowed(port, current) ? current.meanPathDelay : undefined;
}

function isFollowed(port, current) {
   const last = current?.lastUpdatePortKey;
   return port.portState === 'slave' && last?.intf === port.intf && last?.vlanId === port.vlanId;
}

const columns = [
   { title: 'Port', of: (key, port, current, view) => element('button',
      { type: 'button', class: 'open', onclick: (event) => {
         event.stopPropagation();
         view.onOpen(key);
      } }, key), text: (key) => key },
   { title: 'State', of: (key, port) => stateOf(port.portState), text: (key, port) => port.portState },
   { title: 'Role', optional: true, text: (key, port) => port.role ?? '' },
   { title: 'Offset', number: true, text: (key, port, current) => (isFollowed(port, current)
      ? timeText(current.offsetFromMaster) : '–') },
   { title: 'Delay', number: true, text: (key, port, current) => timeText(delayOf(key, port, current)) },
   { title: 'Sync received', number: true, optional: true,
      text: (key, port) => countText(port.syncMessageReceived) },
   { title: 'Lost', number: true, optional: true, text: (key, port) => countText(lossesOf(port)) },
   { title: 'Remarks', text: (key, port) => remarksOf(port) },
];

/// Names of interfaces as people order them: Ethernet2 before Ethernet10.
const collator = new Intl.Collator('en', { numeric: true });

export class Ports {
   /// `onOpen(key)` is called when the user chooses a port.
   constructor(onOpen) {
      this.onOpen = onOpen;
      this.shown = new Map();
      this.states = new Set();
      this.text = '';
      this.mirror = null;
      document.querySelector('#head').append(element('tr', {}, ...columns.map((column) => element('th',
         { class: classesOf(column), scope: 'col' }, column.title))));
      document.querySelector('#filter').addEventListener('input', (event) => {
         this.text = event.target.value.trim().toLowerCase();
         this.filter();
      });
   }

   /// Shows the ports of a mirror that has been fetched.
   mirrorIs(mirror) {
      this.mirror = mirror;
      this.shown.clear();
      const keys = Object.keys(mirror.state.portDS).sort(collator.compare);
      const grid = document.querySelector('#grid');
      const rows = document.querySelector('#rows');
      grid.replaceChildren();
      rows.replaceChildren();
      grid.classList.toggle('few', keys.length <= 64);
      for (const key of keys) {
         const cell = element('button', { type: 'button', onclick: () => this.onOpen(key) });
         const row = element('tr', { onclick: () => this.onOpen(key) },
            ...columns.map((column) => element('td', { class: classesOf(column) })));
         grid.append(cell);
         rows.append(row);
         this.shown.set(key, { cell, row, texts: [] });
         this.update(key);
      }
      this.count();
      this.filter();
   }

   /// Writes what has changed of a port.
   update(key) {
      const port = this.mirror.state.portDS[key];
      const shown = this.shown.get(key);
      if (!port || !shown) {
         return;
      }
      columns.forEach((column, i) => {
         const text = column.text(key, port, this.mirror.state.currentDS);
         if (shown.texts[i] !== text) {
            shown.texts[i] = text;
            shown.row.cells[i].replaceChildren(
               column.of ? column.of(key, port, this.mirror.state.currentDS, this) : text);
         }
      });
      const label = `${key}: ${port.portState}`;
      if (shown.cell.title !== label) {
         shown.cell.title = label;
         shown.cell.setAttribute('aria-label', label);
         shown.cell.className = port.portState;
         shown.state = port.portState;
      }
   }

   /// Counts the ports in each state; each count is a switch that shows these ports only.
   count() {
      const counts = new Map();
      for (const port of Object.values(this.mirror.state.portDS)) {
         counts.set(port.portState, (counts.get(port.portState) ?? 0) + 1);
      }
      const text = JSON.stringify([...counts, ...this.states]);
      if (text === this.counted) {
         return;
      }
      this.counted = text;
      const states = order.filter((state) => counts.has(state) || this.states.has(state));
      document.querySelector('#states').replaceChildren(...states.map((state) => element('button', {
         type: 'button',
         'aria-pressed': String(this.states.has(state)),
         onclick: () => this.toggle(state),
      }, stateOf(state), ` ${counts.get(state) ?? 0}`)));
   }

   toggle(state) {
      if (!this.states.delete(state)) {
         this.states.add(state);
      }
      this.count();
      this.filter();
   }

   filter() {
      let visible = 0;
      for (const [key, { cell, row, state }] of this.shown) {
         const matches = (!this.states.size || this.states.has(state)) &&
            key.toLowerCase().includes(this.text);
         row.hidden = !matches;
         cell.classList.toggle('dim', !matches);
         visible += matches ? 1 : 0;
      }
      const none = document.querySelector('#none');
      none.hidden = visible !== 0;
      none.textContent = this.shown.size ? 'No port matches.' : 'This clock has no ports.';
   }
}

function classesOf(column) {
   return `${column.number ? 'number ' : ''}${column.optional ? 'optional' : ''}`.trim() || undefined;
}
