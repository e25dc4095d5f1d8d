// Drawing on the canvas of the spectrum: fits, single peaks, labels and the lines of a nuclide.

const LABEL_GAP = 13; // pixels between labels
const LABEL_ROOM = 104; // pixels for labels above the spectrum
const MIN_PEAK_WIDTH = 24; // pixels of a region from which single peaks are visible

function colours() {
  const style = getComputedStyle(document.documentElement);
  const names = ["page", "text", "quiet", "grid", "strong-line", "counts", "fit", "continuum", "peak",
    "overlay-0", "overlay-1", "overlay-2", "mark", "selected"];
  return Object.fromEntries(names.map((name) => [name, style.getPropertyValue(`--${name}`).trim()]));
}

// Returns the name of the colour of a spectrum to compare with.
const overlayColour = (index) => `overlay-${index % 3}`;

// Draws values of neighbouring channels as a line; of points in the same pixel only the extremes.
function strokeValues(plot, spectrum, first, values) {
  const { ctx } = plot;
  const low = Math.max(0, spectrum.indexAt(plot.scales.x.min) - first);
  const high = Math.min(values.length - 1, spectrum.indexAt(plot.scales.x.max) + 2 - first);
  let column = NaN;
  let min = 0;
  let max = 0;
  const flush = () => {
    ctx.lineTo(column, plot.valToPos(min, "y", true));
    if (max > min) ctx.lineTo(column, plot.valToPos(max, "y", true));
  };
  ctx.beginPath();
  for (let offset = low; offset <= high; offset += 1) {
    const x = Math.round(2 * plot.valToPos(spectrum.position(first + offset), "x", true)) / 2;
    if (x !== column) {
      if (column === column) flush();
      column = x;
      min = values[offset];
      max = min;
    }
    min = Math.min(min, values[offset]);
    max = Math.max(max, values[offset]);
  }
  if (column === column) flush();
  ctx.stroke();
}

function drawRegion(plot, spectrum, region, palette, showPeaks) {
  const { ctx } = plot;
  const ratio = devicePixelRatio;
  const width = plot.valToPos(spectrum.position(region.last), "x") -
    plot.valToPos(spectrum.position(region.first), "x");
  if (width > MIN_PEAK_WIDTH) {
    ctx.lineWidth = 1.2 * ratio;
    ctx.setLineDash([5 * ratio, 3 * ratio]);
    ctx.strokeStyle = palette.continuum;
    strokeValues(plot, spectrum, region.first, region.continuum);
    ctx.setLineDash([]);
    if (showPeaks) {
      ctx.strokeStyle = palette.peak;
      for (const net of region.nets) {
        const values = net.counts.map((count, index) => count + region.continuum[net.offset + index]);
        strokeValues(plot, spectrum, region.first + net.offset, values);
      }
    }
  }
  ctx.lineWidth = 1.7 * ratio;
  ctx.strokeStyle = palette.fit;
  ctx.setLineDash(region.isFit ? [] : [2 * ratio, 2 * ratio]);
  strokeValues(plot, spectrum, region.first, region.model);
  ctx.setLineDash([]);
}

// Runs a drawing step that cannot leave the plot's area.
function inArea(plot, step) {
  const { ctx, bbox } = plot;
  ctx.save();
  ctx.beginPath();
  ctx.rect(bbox.left, bbox.top, bbox.width, bbox.height);
  ctx.clip();
  step(ctx, bbox);
  ctx.restore();
}

function drawFits(plot, spectrum, palette, showPeaks) {
  inArea(plot, () => {
    const low = spectrum.indexAt(plot.scales.x.min) + 1;
    const high = spectrum.indexAt(plot.scales.x.max) + 1;
    for (const region of spectrum.regionsBetween(low, high)) {
      drawRegion(plot, spectrum, region, palette, showPeaks);
    }
  });
}

// Draws a bar from zero for each residual, or a line if there are more than pixels.
function drawResiduals(plot, spectrum, palette) {
  inArea(plot, (ctx) => {
    const low = spectrum.indexAt(plot.scales.x.min) + 1;
    const high = spectrum.indexAt(plot.scales.x.max) + 1;
    ctx.strokeStyle = palette.fit;
    ctx.lineWidth = devicePixelRatio;
    for (const region of spectrum.regionsBetween(low, high)) {
      if (high - low > plot.bbox.width) strokeValues(plot, spectrum, region.first, region.residuals);
      else strokeBars(plot, spectrum, region);
    }
  });
}

// Draws the outline of a bar for each residual of a region.
function strokeBars(plot, spectrum, region) {
  const { ctx } = plot;
  const zero = plot.valToPos(0, "y", true);
  const edge = (channel) => plot.valToPos(spectrum.position(channel - 0.5), "x", true);
  ctx.beginPath();
  ctx.moveTo(edge(region.first), zero);
  region.residuals.forEach((residual, offset) => {
    const y = plot.valToPos(residual, "y", true);
    ctx.lineTo(edge(region.first + offset), y);
    ctx.lineTo(edge(region.first + offset + 1), y);
  });
  ctx.lineTo(edge(region.last + 1), zero);
  ctx.globalAlpha = 0.2;
  ctx.fillStyle = ctx.strokeStyle;
  ctx.fill();
  ctx.globalAlpha = 1;
  ctx.stroke();
}

// Fills the region of the selected peak.
function drawSelection(plot, spectrum, peak, palette) {
  const region = spectrum.regionOfPeak.get(peak);
  if (region === undefined) return;
  inArea(plot, (ctx, bbox) => {
    const low = plot.valToPos(spectrum.position(region.first - 0.5), "x", true);
    const high = plot.valToPos(spectrum.position(region.last + 0.5), "x", true);
    ctx.fillStyle = palette.selected;
    ctx.fillRect(low, bbox.top, Math.max(high - low, 2), bbox.height);
  });
}

// Draws the lines of a nuclide below the labels: filled triangles at peaks, empty ones and dashes if the
// peak is missing.
function drawLines(plot, lines, palette) {
  const ratio = devicePixelRatio;
  const size = 5 * ratio;
  inArea(plot, (ctx, bbox) => {
    const top = bbox.top + (LABEL_ROOM + 14) * ratio;
    ctx.lineWidth = ratio;
    ctx.strokeStyle = palette.mark;
    ctx.fillStyle = palette.mark;
    for (const [energy, , peak] of lines) {
      const x = plot.valToPos(energy, "x", true);
      ctx.beginPath();
      ctx.moveTo(x - size, top);
      ctx.lineTo(x + size, top);
      ctx.lineTo(x, top + 1.6 * size);
      ctx.closePath();
      ctx.stroke();
      if (peak >= 0) ctx.fill();
      ctx.setLineDash(peak < 0 ? [3 * ratio, 4 * ratio] : []);
      ctx.globalAlpha = 0.6;
      ctx.beginPath();
      ctx.moveTo(x, top + 1.6 * size);
      ctx.lineTo(x, bbox.top + bbox.height);
      ctx.stroke();
      ctx.globalAlpha = 1;
      ctx.setLineDash([]);
    }
  });
}

// Returns the labels that have room: the most significant peaks first, each near its peak.
function placedLabels(plot, spectrum, selected) {
  const taken = [];
  const shown = [];
  const { min, max } = plot.scales.x;
  const order = selected >= 0 ? [selected, ...spectrum.ranking] : spectrum.ranking;
  const width = plot.bbox.width / devicePixelRatio;
  for (const index of order) {
    const peak = spectrum.peaks[index];
    const position = spectrum.position(peak.channel);
    if (peak.channel === null || position < min || position > max || shown.some((one) => one.index === index)) continue;
    const x = plot.valToPos(position, "x");
    const free = [0, 6, -6, 12, -12, 18, -18].map((shift) => x + shift).find((place) =>
      place > LABEL_GAP / 2 && place < width - LABEL_GAP / 2 &&
      taken.every((other) => Math.abs(other - place) >= LABEL_GAP));
    if (free === undefined) continue;
    taken.push(free);
    shown.push({ index, peak, x, place: free });
    if (taken.length > width / LABEL_GAP) break;
  }
  return shown;
}

function drawLabels(plot, spectrum, palette, selected) {
  const ratio = devicePixelRatio;
  const { ctx, bbox } = plot;
  ctx.save();
  ctx.textAlign = "left";
  ctx.textBaseline = "middle";
  for (const { index, peak, x, place } of placedLabels(plot, spectrum, selected)) {
    const text = `${peak.label} ${peak.energy === null ? "" : peak.energy.toFixed(1)}`.trim();
    const foot = bbox.top + LABEL_ROOM * ratio;
    const channel = Math.round(peak.channel);
    const height = Math.max(...spectrum.counts.slice(Math.max(0, channel - 3), channel + 2), MIN_COUNT);
    const top = Math.max(plot.valToPos(height, "y", true) - 4 * ratio, foot + 2 * ratio);
    ctx.strokeStyle = palette["strong-line"];
    ctx.lineWidth = 0.6 * ratio;
    ctx.beginPath();
    ctx.moveTo(bbox.left + place * ratio, foot);
    ctx.lineTo(bbox.left + x * ratio, Math.min(foot + 10 * ratio, top));
    ctx.lineTo(bbox.left + x * ratio, top);
    ctx.stroke();
    ctx.save();
    ctx.translate(bbox.left + place * ratio, foot - 3 * ratio);
    ctx.rotate(-Math.PI / 2);
    ctx.fillStyle = index === selected ? palette.fit : palette.text;
    ctx.font = `${index === selected ? "bold " : ""}${11 * ratio}px system-ui, sans-serif`;
    ctx.fillText(text, 0, 0, (LABEL_ROOM - 6) * ratio);
    ctx.restore();
  }
  ctx.restore();
}
