#!/usr/bin/env node
// `vorla view` seen by headless Chromium: the first frame shows the model, a tree row lights
// its occurrence, a click on the model selects the part's row, a view button moves the
// camera, nothing but the fixed routes is served, and Ctrl-C stops the server with 0.
// Usage: browser-test.js VORLA DOCUMENT OUTPUT_DIR (screenshots); exit 77 (skipped) when
// Chromium cannot start.
const { spawn } = require('child_process');
const fs = require('fs');
const path = require('path');
const puppeteer = require('puppeteer-core');

const [vorla, documentPath, out] = process.argv.slice(2);
const check = (ok, what) => { if (!ok) { console.error(`FAILED: ${what}`); process.exitCode = 1; } };

// In the page: the share of the picture that is not background, the share in the highlight
// colour, the middle highlighted pixel, the number of distinct colours, and the share of
// pixels that differ from `previous`.
function measure(png, previous) {
  const pixels = async (b64) => {
    const bitmap = await createImageBitmap(await (await fetch(`data:image/png;base64,${b64}`)).blob());
    const g = new OffscreenCanvas(bitmap.width, bitmap.height).getContext('2d');
    g.drawImage(bitmap, 0, 0);
    return g.getImageData(0, 0, bitmap.width, bitmap.height);
  };
  return Promise.all([pixels(png), previous ? pixels(previous) : null]).then(([a, b]) => {
    const d = a.data, n = a.width * a.height, colours = new Set(), lit = [];
    let model = 0, changed = 0;
    for (let i = 0; i < n; i++) {
      const [r, g, bl] = [d[4 * i], d[4 * i + 1], d[4 * i + 2]];
      if (Math.abs(r - 0xee) + Math.abs(g - 0xf0) + Math.abs(bl - 0xf3) > 80) model++;
      if (bl > 150 && r < 90 && bl - r > 100) lit.push(i);
      colours.add((r << 16) | (g << 8) | bl);
      if (b && Math.abs(r - b.data[4 * i]) + Math.abs(g - b.data[4 * i + 1]) + Math.abs(bl - b.data[4 * i + 2]) > 30) changed++;
    }
    const middle = lit[lit.length >> 1];
    return { model: model / n, lit: lit.length / n, colours: colours.size, changed: changed / n,
             at: lit.length ? [middle % a.width, Math.floor(middle / a.width)] : null };
  });
}

async function main() {
  fs.mkdirSync(out, { recursive: true });
  const server = spawn(vorla, ['view', '--no-open', '--port', '0', documentPath], { stdio: ['ignore', 'pipe', 'inherit'] });
  const exited = new Promise((resolve) => server.on('exit', (code, signal) => resolve(signal || code)));
  process.on('exit', () => server.kill('SIGKILL'));  // a failed run leaves no server behind
  const url = await Promise.race([exited.then(() => ''),
    new Promise((resolve) => server.stdout.once('data', (d) => resolve(d.toString().trim())))]);
  check(/^http:\/\/127\.0\.0\.1:\d+\/$/.test(url), `the URL printed: ${url}`);
  for (const p of ['etc/passwd', '..%2f..%2fCMakeLists.txt', 'three/', 'model.glbx', 'viewXjs']) {
    check((await fetch(url + p)).status === 404, `404 for /${p}`);
  }
  let browser;
  try {
    browser = await puppeteer.launch({ executablePath: '/usr/bin/chromium', headless: true,
      args: ['--no-sandbox', '--use-angle=swiftshader', '--enable-unsafe-swiftshader'] });
  } catch (e) {
    console.log(`SKIPPED: Chromium cannot start here: ${e.message.split('\n')[0]}`);
    server.kill('SIGINT');
    await exited;
    return 77;
  }
  const page = await browser.newPage();
  page.on('pageerror', (e) => check(false, `page error: ${e.message}`));
  await page.setViewport({ width: 1100, height: 700 });
  await page.goto(url);
  await page.waitForFunction('window.vorlaFrames > 0 && document.querySelectorAll("#tree li").length > 0', { timeout: 90000 });
  const canvas = await page.$('#scene canvas');
  const shoot = async (name) => (await canvas.screenshot({ path: path.join(out, name) })).toString('base64');
  const first = await shoot('first.png');
  const shown = await page.evaluate(measure, first, null);
  console.log('first frame', shown);
  check(shown.model > 0.05 && shown.model < 0.9, 'the model covers 5-90% of the picture');
  check(shown.colours > 50 && shown.lit === 0, 'shaded colours, nothing highlighted');

  const rows = await page.$$('#tree li');
  const names = await Promise.all(rows.map((r) => r.evaluate((li) => li.firstChild.textContent)));
  await rows[names.indexOf('Arm assembly.1')].click();
  const selected = await shoot('selected.png');
  const lit = await page.evaluate(measure, selected, first);
  console.log('after a row click', lit);
  check(lit.lit > 0.01 && lit.changed > 0.01, 'the arm assembly is highlighted');
  check((await page.$eval('#details', (e) => e.textContent)).includes('Arm assembly.1 [110]'), 'its details');

  const box = await canvas.boundingBox();
  await page.mouse.click(box.x + lit.at[0], box.y + lit.at[1]);
  const picked = await page.$eval('#tree li.selected', (li) => li.firstChild.textContent);
  await page.screenshot({ path: path.join(out, 'page.png') });
  check(picked !== 'Arm assembly.1' && names.indexOf(picked) > names.indexOf('Arm assembly.1'), `a part of the arm picked: ${picked}`);

  await page.type('#search', 'SCREW');
  check(await page.$$eval('#tree li:not([hidden])', (l) => l.map((li) => li.firstChild.textContent).join()) ===
        'Screw.1,Screw.2,Screw.3,Screw.4', 'the search keeps the screws');
  const before = await shoot('picked.png');
  await page.click('#views button[data-view]:not([disabled])');
  const viewed = await page.evaluate(measure, await shoot('view.png'), before);
  console.log('after a view button', viewed);
  check(viewed.changed > 0.1 && viewed.model > 0.02, 'the view moved the camera, the model still in sight');
  await browser.close();
  server.kill('SIGINT');
  check((await exited) === 0, 'Ctrl-C stops the server with exit code 0');
  return process.exitCode || 0;
}

main().then((code) => process.exit(code), (e) => { console.error(e); process.exit(1); });
