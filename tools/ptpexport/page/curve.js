// A live curve of nanoseconds: the last hour as the program kept it, then a point every second.
/* global Dygraph */
import { timeText } from './text.js';

const hour = 3600;

/// Seconds shown at least.
const shortest = 60;
const dark = window.matchMedia('(prefers-color-scheme: dark)');

function colour(name) {
   return getComputedStyle(document.documentElement).getPropertyValue(name).trim();
}

/// Draws into an element. `span` is the seconds shown, up to the last point.
export class Curve {
   constructor(place, label) {
      this.place = place;
      this.label = label;
      this.points = [];
      this.span = hour;
      this.graph = null;
      dark.addEventListener('change', () => this.draw());
   }

   /// Replaces everything: a value, or null, for each second from `start` on.
   historyIs(start, values) {
      this.points = values.map((value, i) => [new Date((start + i) * 1000),
         value === null ? null : Number(value)]);
      this.draw();
   }

   /// Adds the value at a second, or null where there is none.
   add(second, value) {
      const last = this.points.at(-1);
      if (last && last[0].getTime() >= second * 1000) {
         return;
      }
      this.points.push([new Date(second * 1000), value]);
      if (this.points.length > hour) {
         this.points.splice(0, this.points.length - hour);
      }
      this.draw();
   }

   spanIs(seconds) {
      this.span = seconds;
      this.draw();
   }

   draw() {
      if (!this.points.length || !this.place.clientWidth) {
         return;
      }
      const end = this.points.at(-1)[0].getTime();
      // A curve that has just begun is not a dot at the edge.
      const begin = Math.max(end - this.span * 1000,
         Math.min(this.points[0][0].getTime(), end - shortest * 1000));
      const options = {
         file: this.points,
         dateWindow: [begin, end],
         colors: [colour('--accent')],
         gridLineColor: colour('--line'),
         axisLineColor: colour('--line'),
      };
      if (this.graph) {
         this.graph.updateOptions(options);
         return;
      }
      const { file, ...first } = options;
      this.graph = new Dygraph(this.place, file, {
         ...first,
         labels: ['time', this.label],
         axes: {
            y: { axisLabelFormatter: timeText, valueFormatter: timeText, axisLabelWidth: 66 },
            x: { axisLabelWidth: 62 },
         },
         connectSeparatedPoints: false,
         legend: 'follow',
         interactionModel: {},
         rightGap: 8,
         strokeWidth: 1.4,
         // A lone point between gaps is seen, too.
         drawPoints: false,
         drawGapEdgePoints: true,
      });
   }
}
