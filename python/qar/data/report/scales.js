// The axes of counts: logarithmic, square root and linear. Each has a transformation, its inverse,
// a range for the smallest and largest count, and round numbers for its ticks.

const MIN_COUNT = 0.5; // the lower end of a logarithmic axis

function roundNumbers(low, high, isFar) {
  const ticks = low <= 0 && high >= 0 ? [0] : [];
  for (let power = -3; power <= 10; power += 1) {
    for (const factor of [1, 2, 5]) {
      const tick = factor * 10 ** power;
      if (tick >= low && tick <= high && isFar(tick, ticks[ticks.length - 1])) ticks.push(tick);
    }
  }
  return ticks;
}

function evenTicks(low, high, count) {
  const span = (high - low) / count;
  const power = 10 ** Math.floor(Math.log10(span));
  const step = [1, 2, 5, 10].map((factor) => factor * power).find((size) => size >= span);
  const ticks = [];
  for (let index = Math.ceil(low / step); index * step <= high; index += 1) ticks.push(index * step);
  return ticks;
}

// Returns the decades, with 2 and 5 between them if there is room.
function decadeTicks(low, high, count) {
  const decades = Math.log10(high / low);
  const factors = decades * 3 <= count ? [1, 2, 5] : [1];
  const every = Math.max(1, Math.ceil(decades / count));
  const ticks = [];
  for (let power = 0; power <= Math.log10(high); power += every) {
    for (const factor of factors) {
      const tick = factor * 10 ** power;
      if (tick >= low && tick <= high) ticks.push(tick);
    }
  }
  return ticks;
}

const SCALES = {
  logarithmic: {
    forward: (count) => Math.log10(Math.max(count, MIN_COUNT)),
    backward: (value) => 10 ** value,
    lowest: (min) => Math.max(MIN_COUNT, min * 0.7),
    ticks: decadeTicks,
  },
  root: {
    forward: (count) => Math.sign(count) * Math.sqrt(Math.abs(count)),
    backward: (value) => value * Math.abs(value),
    lowest: (min) => Math.min(0, min),
    ticks(low, high, count) {
      const gap = (Math.sqrt(Math.max(high, 0)) - Math.sqrt(Math.max(low, 0))) / count / 1.5;
      return roundNumbers(low, high, (tick, last) =>
        last === undefined || Math.sqrt(tick) - Math.sqrt(Math.max(last, 0)) >= gap);
    },
  },
  linear: {
    forward: (count) => count,
    backward: (value) => value,
    lowest: (min) => Math.min(0, min),
    ticks: evenTicks,
  },
};

// Returns the range of an axis whose largest count is below its top by the part `room`.
function countRange(scale, min, max, room) {
  const low = scale.lowest(min);
  const bottom = scale.forward(low);
  const top = Math.max(scale.forward(max), bottom + scale.forward(10) / 4);
  return [low, scale.backward(bottom + (top - bottom) / (1 - room))];
}
