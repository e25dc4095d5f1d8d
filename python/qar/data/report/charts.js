// The three plots: spectrum, residuals, and the strip with the whole spectrum. They share a view, the
// range of positions that is visible.
/* global uPlot, SCALES, countRange, MIN_COUNT, LABEL_ROOM, colours, drawFits, drawResiduals, drawSelection,
   drawLines, drawLabels, overlayColour */

const AXIS_WIDTH = 62; // pixels for the numbers of a vertical axis
const LABEL_WIDTH = 22; // pixels for its name
const NARROW = 500; // pixels; narrower plots have no names of vertical axes
const STRIP_HEIGHT = 64;
const RESIDUALS_HEIGHT = 120;
const MIN_CHANNELS = 12; // of the smallest view
const wholeNumbers = new Intl.NumberFormat("en");

class Charts {
  constructor(spectrum, elements, onCursor) {
    this.spectrum = spectrum;
    this.elements = elements;
    this.onCursor = onCursor;
    this.palette = colours();
    this.scale = SCALES.logarithmic;
    this.layers = { fits: true, peaks: true, labels: true };
    this.selectedPeak = -1;
    this.lines = [];
    this.view = { min: spectrum.start, max: spectrum.end };
    const data = [spectrum.edges, spectrum.counts, ...spectrum.overlays.map((one) => one.counts)];
    this.main = new uPlot(this.mainOptions(), data, elements.chart);
    this.residuals = new uPlot(this.residualOptions(), [spectrum.edges, spectrum.residuals], elements.residuals);
    this.strip = new uPlot(this.stripOptions(), [spectrum.edges, spectrum.counts], elements.strip);
    this.show(spectrum.start, spectrum.end);
    new ResizeObserver(() => this.resize()).observe(elements.chart);
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => {
      this.palette = colours();
      this.redraw();
    });
  }

  // ---- Options of the plots --------------------------------------------------------------------

  size(height) { return { width: Math.max(this.elements.chart.clientWidth, 200), height }; }

  mainHeight() { return Math.min(460, Math.max(300, Math.round(innerHeight * 0.5))); }

  // The vertical axes of all plots take the same width.
  countsAxis(label, more) {
    const isNarrow = this.elements.chart.clientWidth < NARROW;
    return this.axis(isNarrow ? undefined : label,
      { size: isNarrow || label !== undefined ? AXIS_WIDTH : AXIS_WIDTH + LABEL_WIDTH, ...more });
  }

  axis(label, more) {
    const line = () => this.palette.grid;
    return {
      label, labelSize: LABEL_WIDTH, labelGap: 0, font: "12px system-ui, sans-serif", labelFont: "12px system-ui, sans-serif",
      stroke: () => this.palette.quiet, grid: { stroke: line, width: 1 }, ticks: { stroke: line, size: 5 }, ...more,
    };
  }

  line(colour, width) {
    const linear = uPlot.paths.linear();
    const stepped = uPlot.paths.stepped({ align: 1 });
    return {
      stroke: () => this.palette[colour], width, points: { show: false },
      // Steps show single channels; a line is faster and looks the same if there are many.
      paths: (plot, series, first, last) => {
        const { x } = plot.scales;
        const channels = this.spectrum.indexAt(x.max) - this.spectrum.indexAt(x.min);
        return (channels > plot.bbox.width ? linear : stepped)(plot, series, first, last);
      },
    };
  }

  countsScale(room) {
    return {
      distr: 100,
      fwd: (count) => this.scale.forward(count),
      bwd: (value) => this.scale.backward(value),
      range: (plot, min, max) => countRange(this.scale, min === null ? 0 : min, max === null ? 1 : max, room()),
    };
  }

  mainOptions() {
    const room = () => (this.layers.labels ? (LABEL_ROOM + 6) / (this.mainHeight() - 50) : 0.05);
    return {
      ...this.size(this.mainHeight()),
      legend: { show: false },
      cursor: {
        y: false, points: { show: false }, drag: { x: true, y: false, setScale: false },
        bind: { dblclick: () => () => { this.showAll(); } },
      },
      scales: { x: { time: false, auto: false, range: () => [this.view.min, this.view.max] }, y: this.countsScale(room) },
      axes: [
        this.axis(undefined, { size: 8, values: () => [] }), // the numbers are below the residuals
        this.countsAxis("counts per channel", {
          splits: (plot, axis, min, max) => this.scale.ticks(min, max, Math.floor(plot.height / 45)),
          filter: (plot, ticks) => ticks,
          values: (plot, ticks) => ticks.map((tick) => wholeNumbers.format(tick)),
        }),
      ],
      series: [{}, this.line("counts", 1), ...this.spectrum.overlays.map((_, index) => this.line(overlayColour(index), 1))],
      hooks: {
        drawClear: [(plot) => { if (this.selectedPeak >= 0) drawSelection(plot, this.spectrum, this.selectedPeak, this.palette); }],
        draw: [(plot) => this.drawLayers(plot)],
        setSelect: [(plot) => this.zoomToSelection(plot)],
        setCursor: [(plot) => this.readCursor(plot)],
      },
    };
  }

  residualOptions() {
    return {
      ...this.size(RESIDUALS_HEIGHT),
      legend: { show: false },
      cursor: { y: false, points: { show: false }, drag: { x: false, y: false } },
      scales: {
        x: { time: false, auto: false, range: () => [this.view.min, this.view.max] },
        y: { range: (plot, min, max) => {
          const reach = Math.min(20, Math.max(4, Math.abs(min || 0), Math.abs(max || 0)) * 1.05);
          return [-reach, reach];
        } },
      },
      axes: [
        this.axis(this.spectrum.unit ? `energy / ${this.spectrum.unit}` : "channel, counted from 1", { size: 26 }),
        this.countsAxis("residual / σ", { splits: (plot, axis, min, max) => (max > 9 ? [-10, 0, 10] : [-3, 0, 3]) }),
      ],
      series: [{}, { paths: () => null, points: { show: false } }],
      hooks: { draw: [(plot) => drawResiduals(plot, this.spectrum, this.palette)] },
    };
  }

  stripOptions() {
    const logarithmic = SCALES.logarithmic;
    return {
      ...this.size(STRIP_HEIGHT),
      legend: { show: false },
      cursor: { show: false },
      padding: [4, null, 0, null],
      scales: {
        x: { time: false, auto: false, range: () => [this.spectrum.start, this.spectrum.end] },
        y: { distr: 100, fwd: logarithmic.forward, bwd: logarithmic.backward,
          range: (plot, min, max) => countRange(logarithmic, min || 0, max || 1, 0.05) },
      },
      axes: [this.axis(undefined, { size: 24, grid: { show: false } }),
        this.countsAxis(undefined, { splits: () => [] })],
      series: [{}, this.line("counts", 1)],
    };
  }

  // ---- Drawing -----------------------------------------------------------------------------------

  drawLayers(plot) {
    if (this.layers.fits) drawFits(plot, this.spectrum, this.palette, this.layers.peaks);
    if (this.lines.length > 0) drawLines(plot, this.lines, this.palette);
    if (this.layers.labels) drawLabels(plot, this.spectrum, this.palette, this.selectedPeak);
  }

  redraw() {
    for (const plot of [this.main, this.residuals, this.strip]) plot.redraw(false, true);
  }

  resize() {
    this.main.setSize(this.size(this.mainHeight()));
    this.residuals.setSize(this.size(RESIDUALS_HEIGHT));
    this.strip.setSize(this.size(STRIP_HEIGHT));
    this.markView();
  }

  setScale(name) {
    this.scale = SCALES[name];
    this.apply();
  }

  setLayer(name, isShown) {
    this.layers[name] = isShown;
    this.apply();
  }

  select(peak, lines) {
    this.selectedPeak = peak;
    this.lines = lines;
    this.apply();
  }

  // ---- The view ----------------------------------------------------------------------------------

  // Shows a range of positions, which is moved into the spectrum and is not too small.
  show(min, max) {
    const { start, end } = this.spectrum;
    const middle = (min + max) / 2;
    const least = MIN_CHANNELS * this.spectrum.widthAt(this.spectrum.indexAt(middle));
    const width = Math.min(Math.max(max - min, least), end - start);
    const low = Math.min(Math.max(middle - width / 2, start), end - width);
    this.view = { min: low, max: low + width };
    this.apply();
  }

  // Draws the view with the next frame.
  apply() {
    if (this.pending) return;
    this.pending = requestAnimationFrame(() => {
      this.pending = 0;
      // The plots read the view in the ranges of their axes.
      for (const plot of [this.main, this.residuals]) plot.redraw(true, true);
      this.markView();
    });
  }

  showAll() { this.show(this.spectrum.start, this.spectrum.end); }

  // Shows the region of a peak with its surroundings.
  showPeak(index) {
    const { spectrum } = this;
    const region = spectrum.regionOfPeak.get(index);
    const centre = spectrum.position(spectrum.peaks[index].channel);
    const low = region ? spectrum.position(region.first) : centre;
    const high = region ? spectrum.position(region.last) : centre;
    const margin = Math.max(high - low, 20 * spectrum.widthAt(spectrum.indexAt(centre))) * 0.6;
    this.show(low - margin, high + margin);
  }

  // Zooms by a factor around a position, by default the middle.
  zoom(factor, around) {
    const { min, max } = this.view;
    const fixed = around === undefined ? (min + max) / 2 : around;
    this.show(fixed - (fixed - min) * factor, fixed + (max - fixed) * factor);
  }

  // Moves by a part of the view.
  move(part) {
    const shift = part * (this.view.max - this.view.min);
    this.show(this.view.min + shift, this.view.max + shift);
  }

  zoomToSelection(plot) {
    const { left, width } = plot.select;
    if (width > 4) this.show(plot.posToVal(left, "x"), plot.posToVal(left + width, "x"));
    if (width > 0) plot.setSelect({ left: 0, top: 0, width: 0, height: 0 }, false);
  }

  markView() {
    const left = this.strip.valToPos(this.view.min, "x");
    const right = this.strip.valToPos(this.view.max, "x");
    this.strip.setSelect({ left, top: 0, width: right - left, height: this.strip.bbox.height / devicePixelRatio }, false);
  }

  readCursor(plot) {
    const { left } = plot.cursor;
    if (left === undefined || left < 0) return;
    this.residuals.setCursor({ left, top: 0 });
    this.onCursor(this.spectrum.indexAt(plot.posToVal(left, "x")));
  }

  // Moves the reading to a channel, given by its index, and the view with it.
  readChannel(index) {
    const position = this.spectrum.position(index + 1);
    if (position < this.view.min || position > this.view.max) {
      const half = (this.view.max - this.view.min) / 2;
      this.show(position - half, position + half);
    }
    requestAnimationFrame(() => this.main.setCursor({ left: this.main.valToPos(position, "x"), top: 10 }));
    this.onCursor(index);
  }
}
