// Starts the interactive report: reads the data, makes the plots and connects tables and buttons.
/* global Spectrum, Charts, addWheel, addTouch, addStrip, addKeys, element, peakContent, nuclideContent,
   overlayColour, wholeNumbers */

class Report {
  constructor() {
    const find = (id) => document.getElementById(id);
    this.elements = { chart: find("chart"), residuals: find("residuals"), strip: find("strip"),
      readout: find("readout"), details: find("details") };
    this.spectrum = new Spectrum(JSON.parse(find("report-data").textContent));
    this.reading = 0; // index of the channel
    this.peak = -1;
    find("viewer").hidden = false;
    document.documentElement.classList.add("interactive");
    this.charts = new Charts(this.spectrum, this.elements, (index) => this.showReading(index));
    this.connect();
  }

  connect() {
    const area = this.charts.main.over;
    addWheel(this.charts, area);
    addTouch(this.charts, area, (position) => this.selectAt(position));
    addStrip(this.charts);
    addKeys(this.charts, this, this.elements.chart);
    this.connectClicks(area);
    this.connectToolbar();
    this.connectRows("peaks", (index) => this.selectPeak(index));
    this.connectRows("nuclides", (index) => this.selectNuclide(index));
    this.connectRows("missing", (index) => this.selectNuclide(index));
  }

  // A click that did not drag selects the peak below it.
  connectClicks(area) {
    let down = 0;
    area.addEventListener("mousedown", (event) => { down = event.clientX; });
    area.addEventListener("click", (event) => {
      const left = event.clientX - area.getBoundingClientRect().left;
      if (Math.abs(event.clientX - down) < 4) this.selectAt(this.charts.main.posToVal(left, "x"));
    });
  }

  connectToolbar() {
    const actions = {
      previous: () => this.step(-1), next: () => this.step(1), all: () => this.charts.showAll(),
      in: () => this.charts.zoom(0.5), out: () => this.charts.zoom(2),
    };
    document.querySelectorAll("[data-action]").forEach((button) =>
      button.addEventListener("click", actions[button.dataset.action]));
    document.querySelectorAll("#scales input").forEach((input) =>
      input.addEventListener("change", () => this.charts.setScale(input.value)));
    document.querySelectorAll("#layers > label input").forEach((input) =>
      input.addEventListener("change", () => this.charts.setLayer(input.value, input.checked)));
    this.spectrum.overlays.forEach((overlay, index) => this.addOverlay(overlay, index));
  }

  addOverlay(overlay, index) {
    const label = element("label");
    const input = element("input", undefined, { type: "checkbox", checked: "" });
    input.addEventListener("change", () => this.charts.main.setSeries(index + 2, { show: input.checked }));
    label.append(input, ` ${overlay.name} `, element("span", undefined, { class: `swatch ${overlayColour(index)}` }));
    document.getElementById("spectra").append(label);
  }

  // Makes the first cell of each row a button and the whole row clickable.
  connectRows(id, select) {
    document.querySelectorAll(`#${id} tbody tr`).forEach((row) => {
      const head = row.querySelector("th");
      const button = element("button", head.textContent, { type: "button" });
      head.replaceChildren(button);
      row.addEventListener("click", () => {
        select(Number(row.dataset.index));
        document.getElementById("spectrum-title").scrollIntoView({ block: "start" });
      });
    });
  }

  // ---- Reading -----------------------------------------------------------------------------------

  showReading(index) {
    this.reading = index;
    const { spectrum } = this;
    const region = spectrum.regions.find((one) => one.first <= index + 1 && index + 1 <= one.last);
    const facts = [["channel", String(index + 1)], ["counts", wholeNumbers.format(spectrum.counts[index])]];
    if (spectrum.unit) facts.unshift(["energy", `${spectrum.position(index + 1).toFixed(2)} ${spectrum.unit}`]);
    if (region !== undefined) {
      facts.push(["fit", region.model[index + 1 - region.first].toFixed(1)]);
      facts.push(["residual", `${spectrum.residuals[index].toFixed(1)} σ`]);
    }
    spectrum.overlays.forEach((overlay) => facts.push([overlay.name, wholeNumbers.format(overlay.counts[index])]));
    this.elements.readout.replaceChildren(...facts.map(([name, value]) => {
      const fact = element("span", `${name} `);
      fact.append(element("b", value));
      return fact;
    }));
  }

  read(step) {
    this.charts.readChannel(Math.min(Math.max(this.reading + step, 0), this.spectrum.channels - 1));
  }

  // ---- Selection ---------------------------------------------------------------------------------

  selectAt(position) {
    const perPixel = (this.charts.view.max - this.charts.view.min) / this.elements.chart.clientWidth;
    const peak = this.spectrum.nearestPeak(position, 14 * perPixel);
    if (peak < 0) this.deselect();
    else this.selectPeak(peak, false);
  }

  selectPeak(index, isShown = true) {
    this.peak = index;
    const row = this.choose("peaks", index);
    this.charts.select(index, []);
    if (isShown) this.charts.showPeak(index);
    this.elements.details.replaceChildren(
      ...peakContent(this.spectrum, index, row, (energy) => this.showPosition(energy)));
  }

  selectNuclide(index) {
    this.peak = -1;
    const nuclide = this.spectrum.nuclides[index];
    this.choose(document.querySelector(`#nuclides tr[data-index="${index}"]`) ? "nuclides" : "missing", index);
    if (nuclide === undefined) return;
    this.charts.select(-1, nuclide.lines);
    this.charts.showAll();
    this.elements.details.replaceChildren(
      ...nuclideContent(this.spectrum, nuclide, (energy) => this.showPosition(energy)));
  }

  deselect() {
    this.peak = -1;
    this.choose("", -1);
    this.charts.select(-1, []);
    this.elements.details.replaceChildren();
  }

  // Marks a row of a table, and no other; returns the row or null.
  choose(id, index) {
    document.querySelectorAll("tr.chosen").forEach((row) => {
      row.classList.remove("chosen");
      row.removeAttribute("aria-current");
    });
    const row = id ? document.querySelector(`#${id} tbody tr[data-index="${index}"]`) : null;
    if (row !== null) {
      row.classList.add("chosen");
      row.setAttribute("aria-current", "true");
    }
    return row;
  }

  // Shows a line as wide as a peak near it would be.
  showPosition(energy) {
    const width = 60 * this.spectrum.widthAt(this.spectrum.indexAt(energy));
    this.charts.show(energy - width, energy + width);
  }

  // Selects the next or previous peak; the first one is the nearest to the middle of the view.
  step(direction) {
    const { spectrum, charts } = this;
    if (spectrum.peaks.length === 0) return;
    if (this.peak < 0) {
      this.selectPeak(spectrum.nearestPeak((charts.view.min + charts.view.max) / 2, Infinity));
    } else {
      this.selectPeak((this.peak + direction + spectrum.peaks.length) % spectrum.peaks.length);
    }
  }

  nextScale() {
    const inputs = [...document.querySelectorAll("#scales input")];
    const next = inputs[(inputs.findIndex((input) => input.checked) + 1) % inputs.length];
    next.checked = true;
    this.charts.setScale(next.value);
  }
}

window.qarReport = new Report();
