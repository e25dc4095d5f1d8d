// The report as a user sees it: tests/browser/run.py makes the pages and runs these tests.
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { createRequire } from "node:module";
import { after, before, test } from "node:test";
import { drag, drawn, launched, opened, pointAt, viewOf } from "./browser.mjs";

const AXE = readFileSync(createRequire(import.meta.url).resolve("axe-core/axe.min.js"), "utf-8");
const CAESIUM = 661.66; // keV
const PHONE = { viewport: { width: 360, height: 740 }, hasTouch: true, isMobile: true };
const widthOf = ({ min, max }) => max - min;
let browser;

before(async () => { browser = await launched(); });
after(() => browser.close());

async function report(action, options = {}, name = "report.html") {
  const made = await opened(browser, name, options);
  try {
    await made.page.waitForSelector("#viewer canvas");
    await drawn(made.page);
    await action(made.page, made);
    assert.deepEqual(made.errors, []);
  } finally {
    await made.context.close();
  }
}

test("wheel, drag and double click zoom", () => report(async (page) => {
  const whole = await viewOf(page);
  const { x, y } = await pointAt(page, CAESIUM);
  await page.mouse.move(x, y);
  await page.mouse.wheel(0, -400);
  const near = await viewOf(page);
  assert.ok(widthOf(near) < 0.7 * widthOf(whole));
  assert.ok(Math.abs((await pointAt(page, CAESIUM)).x - x) < 2, "the energy at the pointer stays");

  await page.mouse.move(x - 60, y);
  await page.mouse.down();
  await page.mouse.move(x + 60, y, { steps: 4 });
  await page.mouse.up();
  const selected = await viewOf(page);
  assert.ok(widthOf(selected) < 0.2 * widthOf(near));
  assert.ok(Math.abs((selected.min + selected.max) / 2 - CAESIUM) < 0.05 * widthOf(selected));

  await page.mouse.dblclick(x, y);
  assert.deepEqual(await viewOf(page), whole);
}));

test("the strip moves the view and the pointer reads energy, counts and residual", () => report(async (page) => {
  await page.click('[data-action="in"]');
  await page.locator("#strip").scrollIntoViewIfNeeded();
  const box = await page.locator("#strip .u-over").boundingBox();
  await page.mouse.click(box.x + 5, box.y + 10);
  const { min } = await viewOf(page);
  assert.equal(min, await page.evaluate(() => window.qarReport.spectrum.start));
  await page.click('[data-action="all"]');
  await drawn(page);
  await page.locator("#chart").scrollIntoViewIfNeeded();
  const { x, y } = await pointAt(page, CAESIUM);
  await page.mouse.move(x, y);
  await drawn(page);
  assert.match(await page.innerText("#readout"), /energy 66\d\.\d\d keV\s+channel 4[34]\d\s+counts [\d,]+\s+fit [^]* σ/);
}));

test("a click on a row or a peak shows the peak and the lines of its nuclide", () => report(async (page) => {
  await page.click("#peaks tbody tr:first-child td:nth-child(3)");
  const view = await viewOf(page);
  assert.ok(view.min < CAESIUM && CAESIUM < view.max && widthOf(view) < 200);
  assert.match(await page.innerText("#details"), /Peak at 66\d\.\d\d keV, Cs-137[^]*net area[^]*661\.66/);
  assert.equal(await page.getAttribute("#peaks tbody tr:first-child", "aria-current"), "true");

  await page.click("#nuclides button:text('Co-60')");
  const details = await page.innerText("#details");
  assert.match(details, /1173\.23\s+0\.99\d*\s+\d+/);

  await page.click('[data-action="all"]');
  const { x, y } = await pointAt(page, CAESIUM);
  await page.mouse.click(x, y);
  assert.match(await page.innerText("#details h3"), /Cs-137/);
}));

test("lines without a peak are listed as missing", () => report(async (page) => {
  await page.click("#missing button:text('Na-22'), #nuclides button:text('Na-22')");
  assert.equal(await page.locator("#details tr.missing").count(), 2);
  await page.click("#details button:text('1274.50')");
  const view = await viewOf(page);
  assert.ok(view.min < 1274.5 && 1274.5 < view.max);
}));

test("the axis of counts changes", () => report(async (page) => {
  const heightOf = (count) => page.evaluate((value) => {
    const plot = window.qarReport.charts.main;
    return plot.valToPos(value, "y") - plot.valToPos(2000, "y");
  }, count);
  const ticks = () => page.evaluate(() => window.qarReport.charts.main.axes[1]._values);
  const heights = {};
  for (const name of ["logarithmic", "root", "linear"]) {
    await page.check(`#scales input[value="${name}"]`);
    await drawn(page);
    assert.equal(new Set(await ticks()).size, (await ticks()).length, "each tick has a number");
    heights[name] = (await heightOf(500)) / (await heightOf(20));
  }
  assert.ok(Math.abs(heights.logarithmic - Math.log(4) / Math.log(100)) < 0.01);
  assert.ok(Math.abs(heights.root - (Math.sqrt(2000) - Math.sqrt(500)) / (Math.sqrt(2000) - Math.sqrt(20))) < 0.01);
  assert.ok(Math.abs(heights.linear - 1500 / 1980) < 0.01);
}));

test("keys zoom, move, read, select and change the axis", () => report(async (page) => {
  const whole = await viewOf(page);
  await page.focus("#chart");
  await page.keyboard.press("+");
  const near = await viewOf(page);
  assert.ok(widthOf(near) < widthOf(whole));
  await page.keyboard.press("ArrowRight");
  assert.ok((await viewOf(page)).min > near.min);
  await page.keyboard.press("n");
  const first = await page.innerText("#details h3");
  await page.keyboard.press("n");
  assert.notEqual(await page.innerText("#details h3"), first);
  await page.keyboard.press("Escape");
  assert.deepEqual(await viewOf(page), whole);
  assert.equal(await page.innerText("#details"), "");
  await page.keyboard.press("Shift+ArrowRight");
  assert.match(await page.innerText("#readout"), /channel 2\b/);
  await page.keyboard.press("s");
  assert.ok(await page.isChecked('#scales input[value="root"]'));
}));

test("a dark page has light curves, which follow a change of the scheme", () => report(async (page) => {
  const brightness = () => page.evaluate(() => {
    const rgb = getComputedStyle(document.body).backgroundColor.match(/\d+/g).map(Number);
    const { counts } = window.qarReport.charts.palette;
    return { page: rgb[0], curve: parseInt(counts.slice(3, 5), 16) };
  });
  const dark = await brightness();
  await page.emulateMedia({ colorScheme: "light" });
  await drawn(page);
  const light = await brightness();
  assert.ok(dark.page < 60 && light.page > 200);
  assert.ok(dark.curve > light.curve);
}, { colorScheme: "dark" }));

test("two fingers zoom and one moves the view", () => report(async (page) => {
  const whole = await viewOf(page);
  await page.locator("#chart").scrollIntoViewIfNeeded();
  const { x, y } = await pointAt(page, CAESIUM);
  await drag(page, [{ x: x - 10, y }, { x: x - 40, y }], [{ x: x + 10, y }, { x: x + 40, y }]);
  const near = await viewOf(page);
  assert.ok(widthOf(near) < 0.3 * widthOf(whole));
  assert.ok(Math.abs((await pointAt(page, CAESIUM)).x - x) < 3);
  await drag(page, [{ x, y }, { x: x - 50, y }]);
  const moved = await viewOf(page);
  assert.ok(moved.min > near.min && Math.abs(widthOf(moved) - widthOf(near)) < 1e-6);
}, PHONE));

test("nothing is wider than a screen of 360 pixels, and a tap selects", () => report(async (page) => {
  assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), 360);
  const cell = await page.locator("#peaks td:nth-child(3)").first();
  assert.match(await cell.evaluate((one) => getComputedStyle(one, "::before").content), /net area/);
  await page.locator("#chart").scrollIntoViewIfNeeded();
  const { x, y } = await pointAt(page, CAESIUM);
  await page.touchscreen.tap(x, y);
  assert.match(await page.innerText("#details h3"), /Cs-137/);
  for (const width of [700, 760, 1000]) {
    await page.setViewportSize({ width, height: 740 });
    assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), width);
  }
}, PHONE));

test("print shows the picture, tables with repeated heads and no controls", () => report(async (page) => {
  assert.equal(await page.isVisible("#picture svg"), false);
  await page.emulateMedia({ media: "print", colorScheme: "dark" });
  assert.equal(await page.isVisible("#picture svg"), true);
  assert.equal(await page.isVisible("#viewer"), false);
  const styles = await page.evaluate(() => ["#peaks thead", "#peaks td"].map((name) => {
    const style = getComputedStyle(document.querySelector(name));
    return [style.display, style.color, style.overflowWrap];
  }));
  assert.equal(styles[0][0], "table-header-group");
  assert.deepEqual(styles[1], ["table-cell", "rgb(0, 0, 0)", "normal"]);
}));

test("strings of the file stay text, and foreign scripts and requests are refused", () => report(async (page, made) => {
  assert.match(await page.innerText("h1"), /^<\/script><img/);
  assert.equal(await page.locator("img, b:text('x')").count(), 0);
  assert.deepEqual(made.requests.filter((url) => !url.startsWith("file:")), []);
  const refused = await page.evaluate(async () => {
    const violations = [];
    document.addEventListener("securitypolicyviolation", (event) => violations.push(event.effectiveDirective));
    const script = document.createElement("script");
    script.textContent = "window.isHarmed = 1";
    const image = new Image();
    image.src = "http://127.0.0.1:9/x";
    document.body.append(script, image);
    await new Promise((done) => { setTimeout(done, 100); });
    return [violations.sort(), window.isHarmed];
  });
  assert.deepEqual(refused, [["img-src", "script-src-elem"], undefined]);
  made.errors.length = 0; // the refusals
}));

test("reports of a batch share their script", async () => {
  await report(async (page, made) => {
    assert.equal(made.requests.length, 2);
    await page.goto(made.requests[0].replace("sample", "blank"));
    assert.equal(made.requests[3], made.requests[1]);
    await page.click("#peaks tbody tr:first-child");
    assert.notEqual(await page.innerText("#details"), "");
  }, {}, "batch/sample.html");
});

test("the page has no faults for screen readers, light or dark", async () => {
  for (const colorScheme of ["light", "dark"]) {
    await report(async (page) => {
      await page.click("#nuclides tbody tr:first-child");
      await page.evaluate(AXE);
      const { violations } = await page.evaluate(() => window.axe.run({ resultTypes: ["violations"] }));
      const faults = violations.map((one) => `${one.id}: ${one.nodes.map((node) => node.html).join(" ")}`);
      assert.deepEqual(faults, []);
    }, { colorScheme, bypassCSP: true });
  }
});
