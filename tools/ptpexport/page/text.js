// Values as text, and elements made of text only: nothing from a clock is ever parsed as HTML.

/// Nanoseconds with the unit that fits: -12 ns, 3.4 µs, 1.25 ms.
export function timeText(nanoseconds) {
   if (nanoseconds === undefined || nanoseconds === null) {
      return '–';
   }
   const value = Number(nanoseconds);
   for (const [unit, size] of [['s', 1e9], ['ms', 1e6], ['µs', 1e3]]) {
      if (Math.abs(value) >= size) {
         return `${(value / size).toPrecision(4)}\u00a0${unit}`;
      }
   }
   return `${Number.isInteger(value) ? value : value.toFixed(1)}\u00a0ns`;
}

export function countText(value) {
   return value === undefined || value === null ? '–' : Number(value).toLocaleString('en');
}

/// Milliseconds as the time of day, with the date if it is not today's.
export function clockText(milliseconds) {
   const time = new Date(milliseconds);
   const day = time.toDateString() === new Date().toDateString()
      ? '' : `${time.toLocaleDateString()} `;
   return day + time.toLocaleTimeString([], { hour12: false });
}

/// The logarithm of an interval as a rate or a time: -3 is 8/s, 1 is every 2 s.
export function intervalText(log) {
   return log < 0 ? `${2 ** -log}/s` : log === 0 ? 'every second' : `every ${2 ** log} s`;
}

/// portDSKey -> "port DS key": the names of attributes as words.
export function wordsOf(name) {
   return name.replace(/([a-z0-9])([A-Z])/g, '$1 $2')
      .replace(/ ([A-Z])(?=[a-z])/g, (all, letter) => ` ${letter.toLowerCase()}`);
}

/// An element with attributes and children; a text child is text.
export function element(name, attributes = {}, ...children) {
   const made = document.createElement(name);
   for (const [key, value] of Object.entries(attributes)) {
      if (key.startsWith('on')) {
         made.addEventListener(key.slice(2), value);
      } else if (value !== undefined && value !== false) {
         made.setAttribute(key, value);
      }
   }
   made.append(...children);
   return made;
}

export function cardOf(title, main, rows) {
   const list = element('dl');
   for (const [name, value] of rows) {
      list.append(element('dt', {}, name), element('dd', {}, value));
   }
   return element('article', { class: 'card' }, element('h2', {}, title),
      element('div', { class: 'main' }, main), list);
}

export function stateOf(state) {
   return element('span', { class: `state ${state}` }, state);
}
