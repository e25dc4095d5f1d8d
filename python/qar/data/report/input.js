// Wheel, touch and keys.

const WHEEL_ZOOM = 0.0015; // of the view for each pixel of the wheel
const TAP = 8; // pixels that a finger may move in a tap

function addWheel(charts, area) {
  area.addEventListener("wheel", (event) => {
    event.preventDefault();
    const sideways = event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY);
    const delta = (event.deltaMode === 1 ? 16 : 1) * (event.deltaY || event.deltaX);
    if (sideways) {
      charts.move((event.deltaX || event.deltaY) / area.clientWidth);
    } else {
      const left = event.clientX - area.getBoundingClientRect().left;
      charts.zoom(Math.exp(delta * WHEEL_ZOOM), charts.main.posToVal(left, "x"));
    }
  }, { passive: false });
}

// One finger moves the view, two zoom, a tap selects. Fingers keep the positions that they touched.
function addTouch(charts, area, onTap) {
  const fingers = new Map(); // pixel of each finger, and the position below it when it was put down
  let moved = 0;
  const pixelOf = (event) => event.clientX - area.getBoundingClientRect().left;
  const hold = () => fingers.forEach((finger) => { finger.position = charts.main.posToVal(finger.pixel, "x"); });

  area.addEventListener("pointerdown", (event) => {
    if (event.pointerType !== "touch") return;
    fingers.set(event.pointerId, { pixel: pixelOf(event) });
    moved = 0;
    hold();
  });
  area.addEventListener("pointermove", (event) => {
    const finger = fingers.get(event.pointerId);
    if (finger === undefined) return;
    moved += Math.abs(pixelOf(event) - finger.pixel);
    finger.pixel = pixelOf(event);
    const [one, two] = [...fingers.values()];
    const width = area.clientWidth;
    const { min, max } = charts.view;
    let perPixel = (max - min) / width;
    if (two !== undefined && Math.abs(one.pixel - two.pixel) > TAP) {
      perPixel = Math.abs((one.position - two.position) / (one.pixel - two.pixel));
    }
    const low = one.position - one.pixel * perPixel;
    charts.show(low, low + width * perPixel);
  });
  const release = (event) => {
    const finger = fingers.get(event.pointerId);
    if (finger === undefined) return;
    fingers.delete(event.pointerId);
    hold();
    if (event.type === "pointerup" && fingers.size === 0 && moved < TAP) onTap(finger.position);
  };
  area.addEventListener("pointerup", release);
  area.addEventListener("pointercancel", release);
}

// Dragging on the strip moves the view.
function addStrip(charts) {
  const area = charts.strip.over;
  const centre = (event) => {
    const position = charts.strip.posToVal(event.clientX - area.getBoundingClientRect().left, "x");
    const half = (charts.view.max - charts.view.min) / 2;
    charts.show(position - half, position + half);
  };
  area.addEventListener("pointerdown", (event) => {
    area.setPointerCapture(event.pointerId);
    centre(event);
  });
  area.addEventListener("pointermove", (event) => {
    if (area.hasPointerCapture(event.pointerId)) centre(event);
  });
}

// Returns the action for each key.
function keyActions(charts, report) {
  return {
    ArrowLeft: (event) => (event.shiftKey ? report.read(-1) : charts.move(-0.1)),
    ArrowRight: (event) => (event.shiftKey ? report.read(1) : charts.move(0.1)),
    PageUp: () => charts.move(-0.9),
    PageDown: () => charts.move(0.9),
    "+": () => charts.zoom(0.7),
    "=": () => charts.zoom(0.7),
    "-": () => charts.zoom(1 / 0.7),
    0: () => charts.showAll(),
    Escape: () => { report.deselect(); charts.showAll(); },
    n: () => report.step(1),
    p: () => report.step(-1),
    s: () => report.nextScale(),
  };
}

function addKeys(charts, report, chart) {
  const actions = keyActions(charts, report);
  chart.addEventListener("keydown", (event) => {
    const action = event.ctrlKey || event.metaKey || event.altKey ? undefined : actions[event.key];
    if (action === undefined) return;
    event.preventDefault();
    action(event);
  });
}
