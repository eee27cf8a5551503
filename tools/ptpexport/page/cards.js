// What the clock says of itself, of whom it follows, and of time.
import { cardOf, timeText } from './text.js';

/// Words for clock accuracies (IEEE 1588-2019, table 5).
const accuracies = ['1 ps', '2.5 ps', '10 ps', '25 ps', '100 ps', '250 ps', '1 ns', '2.5 ns', '10 ns',
   '25 ns', '100 ns', '250 ns', '1 µs', '2.5 µs', '10 µs', '25 µs', '100 µs', '250 µs', '1 ms',
   '2.5 ms', '10 ms', '25 ms', '100 ms', '250 ms', '1 s', '10 s', '> 10 s'];

/// Names of time sources (IEEE 1588-2019, table 6).
const timeSources = { 0x10: 'atomic clock', 0x20: 'GNSS', 0x30: 'terrestrial radio',
   0x39: 'serial time code', 0x40: 'PTP', 0x50: 'NTP', 0x60: 'hand set', 0x90: 'other',
   0xA0: 'internal oscillator' };

export function accuracyText(accuracy) {
   const text = accuracies[accuracy - 0x17];
   return text ? `within ${text}`.replace('within >', 'worse than') : 'unknown';
}

function qualityRows(quality) {
   return quality ? [['class', `${quality.clockClass}`],
      ['accuracy', accuracyText(quality.clockAccuracy)],
      ['variance', `${quality.offsetScaledLogVariance}`]] : [];
}

function leapText(time) {
   return time.leap61 ? 'second inserted today' : time.leap59 ? 'second removed today' : 'none';
}

/// The cards of a clock's state, left to right.
export function clockCards(state) {
   const { defaultDS: clock, currentDS: current, parentDS: parent, timePropertiesDS: time } = state;
   const cards = [];
   if (current) {
      cards.push(cardOf('Offset from master', timeText(current.offsetFromMaster), [
         ['mean path delay', timeText(current.meanPathDelay)],
         ['steps removed', `${current.stepsRemoved}`],
         ['grandmaster present', current.gmPresent ? 'yes' : 'no']]));
   }
   if (parent) {
      const self = clock && parent.grandmasterIdentity === clock.clockIdentity;
      cards.push(cardOf('Grandmaster', self ? 'this clock' : parent.grandmasterIdentity, [
         ...qualityRows(parent.grandmasterClockQuality),
         ['priorities', `${parent.grandmasterPriority1}, ${parent.grandmasterPriority2}`]]));
      const source = parent.parentSourceAddrs?.parentPortIdentity;
      if (source && !self) {
         cards.push(cardOf('Parent', source.clockIdentity, [
            ['port', `${source.portNumber}`],
            ['address', parent.parentSourceAddrs.parentIpAddr ?? '–']]));
      }
   }
   if (clock) {
      cards.push(cardOf('This clock', clock.clockIdentity, [
         ['domain', `${clock.domainNumber}`],
         ['kind', clock.ptpMode ?? '–'],
         ...qualityRows(clock.clockQuality).slice(0, 2),
         ['priorities', `${clock.priority1}, ${clock.priority2}`],
         ['holdover', state.holdoverState ?? '–']]));
   }
   if (time) {
      cards.push(cardOf('Time', time.ptpTimescale ? 'TAI' : 'arbitrary timescale', [
         ['UTC offset', `${time.currentUtcOffset} s${time.currentUtcOffsetValid ? '' : ' (not valid)'}`],
         ['traceable', time.timeTraceable ? 'yes' : 'no'],
         ['leap second', leapText(time)],
         ['source', timeSources[time.timeSource] ?? `${time.timeSource}`]]));
   }
   return cards;
}
