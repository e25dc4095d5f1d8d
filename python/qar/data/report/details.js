// The panel below the spectrum: the selected peak or nuclide with its lines, found and missing. All
// strings from the file become text nodes, never HTML.

function element(name, text, attributes) {
  const made = document.createElement(name);
  if (text !== undefined) made.textContent = text;
  Object.entries(attributes || {}).forEach(([key, value]) => made.setAttribute(key, value));
  return made;
}

function rowOf(cells, name) {
  const row = element("tr");
  cells.forEach((cell, index) => row.append(index === 0 && name === "td"
    ? element("th", cell, { scope: "row" })
    : element(name, cell, name === "th" ? { scope: "col" } : {})));
  return row;
}

// Describes the peak at a line.
function peakOf(spectrum, [, , peak, isOwn]) {
  if (peak < 0) return "missing";
  const { area, label } = spectrum.peaks[peak];
  if (isOwn) return area;
  return label ? `${area}, assigned to ${label}` : `${area}, not assigned`;
}

// Returns the lines of a nuclide as a table.
function linesTable(spectrum, lines, showPosition) {
  const table = element("table");
  const head = element("thead");
  head.append(rowOf(["energy / keV", "photons per decay", "expected counts", "counts in the peak"], "th"));
  const body = element("tbody");
  for (const line of lines) {
    const [energy, photons, peak, , expected] = line;
    const row = rowOf(["", String(photons), expected === null ? "-" : String(expected), peakOf(spectrum, line)], "td");
    if (peak < 0) row.classList.add("missing");
    const button = element("button", energy.toFixed(2), { type: "button" });
    button.addEventListener("click", () => showPosition(energy));
    row.firstChild.append(button);
    body.append(row);
  }
  table.append(head, body);
  const frame = element("div", undefined, { class: "lines", tabindex: "0", role: "region", "aria-label": "Lines of the nuclide" });
  frame.append(table);
  return frame;
}

function nuclideContent(spectrum, nuclide, showPosition) {
  const missing = nuclide.lines.filter(([, , peak]) => peak < 0).length;
  const found = nuclide.lines.length - missing;
  const content = [element("h3", nuclide.name)];
  if (nuclide.lines.length === 0) {
    return [...content, element("p", "The nuclide library used for this page has no lines of this nuclide.")];
  }
  content.push(element("p", `${found} of ${nuclide.lines.length} lines have a peak, ${missing} are missing.`));
  if (!nuclide.lines.some(([, , , , expected]) => expected !== null)) {
    content.push(element("p", spectrum.hasEfficiency
      ? "No expected counts: no peak is assigned to this nuclide."
      : "No expected counts: the file has no efficiency calibration."));
  }
  return [...content, linesTable(spectrum, nuclide.lines, showPosition)];
}

// Returns the cells of a row, each with its heading and unit.
function rowContent(row) {
  const heads = [...row.closest("table").querySelectorAll("thead th")];
  const cells = [...row.children].slice(1);
  return cells.map((cell, index) => {
    const [title, unit] = heads[index + 1].innerText.split("\n");
    return element("span", `${title} ${cell.textContent}${unit && unit !== "reduced" ? ` ${unit}` : ""}`);
  });
}

function peakContent(spectrum, index, row, showPosition) {
  const peak = spectrum.peaks[index];
  const energy = peak.energy === null ? `channel ${peak.channel}` : `${peak.energy.toFixed(2)} keV`;
  const content = [element("h3", [`Peak at ${energy}`, peak.label].filter(Boolean).join(", "))];
  if (row !== null) {
    const facts = element("p", undefined, { class: "row" });
    facts.append(...rowContent(row).flatMap((fact) => [fact, document.createTextNode("; ")]).slice(0, -1));
    content.push(facts);
  }
  const nuclide = spectrum.nuclides.find((one) => one.name === peak.nuclide);
  return nuclide === undefined ? content : [...content, ...nuclideContent(spectrum, nuclide, showPosition).slice(1)];
}
