// A page of the tests in headless Chromium, with a record of its requests and errors.
import { chromium } from "playwright-core";

const ARGUMENTS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
  "--disable-background-networking", "--disable-component-update", "--disable-sync"];

export const launched = () => chromium.launch({ executablePath: process.env.CHROMIUM, args: ARGUMENTS });

// Opens a page in a context of its own. Returns it with its requests and errors.
export async function opened(browser, name, options = {}) {
  const context = await browser.newContext({ viewport: { width: 1200, height: 900 }, ...options });
  const page = await context.newPage();
  const requests = [];
  const errors = [];
  page.on("request", (request) => requests.push(request.url()));
  page.on("pageerror", (error) => errors.push(error.message));
  page.on("console", (message) => { if (message.type() === "error") errors.push(message.text()); });
  await page.goto(`file://${process.env.PAGES}/${name}`);
  return { context, page, requests, errors };
}

// Waits until the next frame is drawn.
export const drawn = (page) => page.evaluate(() => new Promise((done) => {
  requestAnimationFrame(() => requestAnimationFrame(done));
}));

// Moves fingers over the page, each from its first to its last point.
export async function drag(page, ...fingers) {
  const session = await page.context().newCDPSession(page);
  const send = (type, part) => session.send("Input.dispatchTouchEvent", {
    type,
    touchPoints: part === null ? [] : fingers.map(([from, to], id) => ({
      id, x: from.x + part * (to.x - from.x), y: from.y + part * (to.y - from.y),
    })),
  });
  await send("touchStart", 0);
  for (const part of [0.3, 0.6, 1]) await send("touchMove", part);
  await send("touchEnd", null);
}

// Returns the visible range of energies.
export async function viewOf(page) {
  await drawn(page);
  return page.evaluate(() => ({ ...window.qarReport.charts.view }));
}

// Returns the point of the page at an energy, in the middle of the spectrum's height.
export const pointAt = (page, energy) => page.evaluate((position) => {
  const plot = window.qarReport.charts.main;
  const box = plot.over.getBoundingClientRect();
  return { x: box.left + plot.valToPos(position, "x"), y: box.top + box.height / 2 };
}, energy);
