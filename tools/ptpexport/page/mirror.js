// The part of a clock's state that the page shows, kept up to date by the program's events.
import { inUrl, partsOf } from './path.js';

/// What is fetched, and whose changes are followed. All else of a port is fetched when it is shown.
const members = ['defaultDS', 'currentDS', 'parentDS', 'timePropertiesDS', 'portDS'];
const ownAttributes = ['enabled', 'holdoverState'];

/// JSON from the program; throws if it refuses.
export async function fetchJson(path) {
   const response = await fetch(path, { cache: 'no-store' });
   if (!response.ok) {
      throw Object.assign(new Error((await response.text()).trim() || `${response.status} ${path}`),
         { status: response.status });
   }
   return response.json();
}

/// What is at a path of a state; undefined if nothing is there.
export async function fetchState(path) {
   const dump = await fetchJson(`state/${inUrl(path)}`);
   return dump.places[0]?.state;
}

function sourceLost({ reason, since }) {
   return { live: false, text: "the clock's process is gone", since, reason };
}

/// A mirror of one clock. It calls `onChange(parts, value)` for each change, `onLoad()` when
/// everything has been fetched again, and `onLink({live, text, since, reason})` when the way to the
/// clock changes.
export class Mirror {
   constructor(root, listener) {
      this.root = root;
      this.listener = listener;
      this.state = {};
      this.loading = null;
      this.pending = [];
      this.open();
   }

   close() {
      this.events?.close();
      clearTimeout(this.again);
   }

   open() {
      const paths = [...members, ...ownAttributes].map(
         (member) => `path=${encodeURIComponent(`${this.root}.${member}`)}`);
      this.events = new EventSource(`events?${paths.join('&')}`);
      this.events.onopen = () => this.load();
      this.events.onmessage = (event) => this.take(JSON.parse(event.data));
      this.events.addEventListener('source', (event) => this.sourceIs(JSON.parse(event.data)));
      this.events.onerror = () => {
         this.listener.onLink({ live: false, text: 'ptpexport does not answer; trying again' });
         if (this.events.readyState === EventSource.CLOSED) {
            // An answer that is not a stream ends the browser's own attempts.
            this.again = setTimeout(() => this.open(), 2000);
         }
      };
   }

   sourceIs(source) {
      if (source.connected) {
         this.load();
      } else {
         this.listener.onLink(sourceLost(source));
      }
   }

   /// Fetches everything. Changes that arrive meanwhile wait, and are applied to what was fetched.
   async load() {
      const turn = {};
      this.loading = turn;
      this.pending = [];
      try {
         const found = await Promise.all([...members, ...ownAttributes].map(
            (member) => fetchState(`${this.root}.${member}`).catch((error) => {
               if (error.status === 404) {
                  return undefined;
               }
               throw error;
            })));
         const health = await fetchJson('healthz?always');
         if (this.loading !== turn) {
            return;
         }
         this.state = Object.fromEntries(
            [...members, ...ownAttributes].map((member, i) => [member, found[i]]));
         this.state.portDS ??= {};
         this.loading = null;
         this.pending.forEach((change) => this.apply(change));
         this.listener.onLoad();
         this.listener.onLink(health.connected
            ? { live: true, text: 'live' }
            : sourceLost(health));
      } catch (error) {
         if (this.loading === turn) {
            this.listener.onLink({ live: false, text: error.message });
            this.again = setTimeout(() => this.load(), 2000);
         }
      }
   }

   take(change) {
      if (!change.path) {
         return;  // changes were left out that newer ones follow
      }
      if (this.loading) {
         this.pending.push(change);
      } else {
         this.apply(change);
      }
   }

   apply(change) {
      if (!change.path.startsWith(this.root)) {
         return;
      }
      const parts = partsOf(change.path.slice(this.root.length));
      let place = this.state;
      for (const part of parts.slice(0, -1)) {
         place = place?.[part];
      }
      const last = parts.at(-1);
      const isEntity = change.change === 'created' && typeof change.new === 'object';
      if (isEntity || (place === undefined && change.change !== 'deleted')) {
         // Only its changes are sent: its defaults have to be fetched.
         this.fetchSoon();
      } else if (place !== undefined && change.change === 'deleted') {
         delete place[last];
         this.listener.onChange(parts, undefined);
      } else if (place !== undefined) {
         place[last] = change.new;
         this.listener.onChange(parts, change.new);
      }
   }

   /// Many ports that appear at once are fetched once.
   fetchSoon() {
      clearTimeout(this.again);
      this.again = setTimeout(() => this.load(), 250);
   }
}
