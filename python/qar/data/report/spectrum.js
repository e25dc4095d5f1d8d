// The numbers of the report: counts, positions on the energy axis, curves of the fits.

const MIN_VARIANCE = 0.5; // of a channel in a residual

// Undoes the storage as differences of neighbours, in multiples of a unit.
function restored(differences, unit) {
  let sum = 0;
  return Float64Array.from(differences, (difference) => {
    sum += difference;
    return sum * unit;
  });
}

function restoredRegion(stored) {
  const model = restored(stored.model, stored.unit);
  const continuum = restored(stored.continuum, stored.unit);
  const nets = stored.net === undefined ? [] : stored.net.map((part) => ({
    offset: part.offset,
    counts: restored(part.counts, stored.unit),
  }));
  return { first: stored.first, last: stored.first + model.length - 1, model, continuum, nets,
    peaks: stored.peaks, isFit: stored.isFit };
}

class Spectrum {
  constructor(data) {
    this.counts = data.counts;
    this.overlays = data.overlays;
    this.excess = data.excess;
    this.peaks = data.peaks;
    this.nuclides = data.nuclides;
    this.hasEfficiency = data.hasEfficiency;
    this.channels = data.counts.length;
    this.energy = data.energy;
    this.unit = data.unit;
    this.edges = this.makeEdges();
    if (this.edges.some((edge, index) => index > 0 && !(edge > this.edges[index - 1]))) {
      this.energy = [];
      this.unit = "";
      this.edges = this.makeEdges();
    }
    this.regions = data.regions.map(restoredRegion);
    this.regionOfPeak = new Map();
    this.regions.forEach((region) => region.peaks.forEach((peak) => this.regionOfPeak.set(peak, region)));
    this.ranking = this.peaks.map((_, index) => index)
      .sort((a, b) => (this.peaks[b].significance || 0) - (this.peaks[a].significance || 0));
    this.residuals = this.makeResiduals();
  }

  // Returns the position of a channel, counted from 1, which may be a fraction.
  position(channel) {
    return this.energy.length === 0
      ? channel
      : this.energy.reduceRight((value, coefficient) => value * channel + coefficient, 0);
  }

  // The lower edge of each channel.
  makeEdges() {
    return Float64Array.from(this.counts, (_, index) => this.position(index + 0.5));
  }

  get start() { return this.edges[0]; }

  get end() { return this.position(this.channels + 0.5); }

  // Returns the index, from 0, of the channel at a position.
  indexAt(position) {
    let low = 0;
    let high = this.channels - 1;
    while (low < high) {
      const middle = (low + high + 1) >> 1;
      if (this.edges[middle] <= position) low = middle;
      else high = middle - 1;
    }
    return low;
  }

  widthAt(index) { return this.position(index + 1.5) - this.edges[index]; }

  regionsBetween(firstChannel, lastChannel) {
    return this.regions.filter((region) => region.last >= firstChannel && region.first <= lastChannel);
  }

  // Returns the counts less the model in standard deviations; null outside the regions.
  makeResiduals() {
    const residuals = new Array(this.channels).fill(null);
    for (const region of this.regions) {
      region.residuals = region.model.map((model, offset) => {
        const index = region.first - 1 + offset;
        const variance = Math.max(model + (this.excess[index] || 0), MIN_VARIANCE);
        return (this.counts[index] - model) / Math.sqrt(variance);
      });
      region.residuals.forEach((residual, offset) => { residuals[region.first - 1 + offset] = residual; });
    }
    return residuals;
  }

  // Returns the peak nearest to a position, or -1 if none is within the distance.
  nearestPeak(position, distance) {
    let best = -1;
    let least = distance;
    this.peaks.forEach((peak, index) => {
      const apart = Math.abs(this.position(peak.channel) - position);
      if (peak.channel !== null && apart <= least) {
        best = index;
        least = apart;
      }
    });
    return best;
  }
}
