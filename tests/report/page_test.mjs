// Opens the page of refetchd-report in Chromium, in light and dark, on a telephone, a desk and paper:
// node page_test.mjs PAGE SCREENSHOTS. The page holds the logs of sample_log.mjs. Fails if something
// is wider than the window, if axe finds a violation, or if a URL of the log does something.
import assert from 'node:assert/strict'
import { createRequire } from 'node:module'
import path from 'node:path'
import { pathToFileURL } from 'node:url'

const [file, screenshots] = process.argv.slice(2)
const require = createRequire(path.resolve('package.json')) // the packages are in the working directory
const puppeteer = require('puppeteer-core')
const options = { executablePath: '/usr/bin/chromium', args: process.getuid() === 0 ? ['--no-sandbox'] : [] }
const browser = await puppeteer.launch({ ...options, timeout: 60000 })
const deadline = setTimeout(() => { console.error('no end after four minutes'); process.exit(1) }, 240000)

// What is wider than the window, or than its own place.
const overflow = () => [...document.querySelectorAll('body, body *')].filter(e =>
  e.getBoundingClientRect().right > innerWidth + 0.5 ||
  (e.scrollWidth > e.clientWidth + 1 && getComputedStyle(e).display !== 'inline' && !e.closest('svg')))
  .map(e => e.outerHTML.slice(0, 120))

async function check(width, scheme) {
  const page = await browser.newPage()
  const events = []
  page.on('request', request => events.push(request.url()))
  page.on('dialog', dialog => { events.push('dialog'); dialog.dismiss() })
  page.on('console', message => events.push(message.text()))
  await page.setViewport({ width, height: 800, deviceScaleFactor: 1 })
  await page.emulateMediaFeatures([{ name: 'prefers-color-scheme', value: scheme }])
  await page.goto(pathToFileURL(file).href)
  assert.deepEqual(events, [pathToFileURL(file).href], 'the page asks for nothing, and says nothing')
  await page.screenshot({ path: path.join(screenshots, `report-${width}-${scheme}.png`), fullPage: true })
  if (width === 1280 && scheme === 'light') { // for README.md
    await page.screenshot({ path: path.join(screenshots, 'report.png'), clip: { x: 60, y: 0, width: 1160, height: 1085, scale: 0.75 } })
  }
  await page.$eval('details', details => { details.open = true })
  assert.deepEqual(await page.evaluate(overflow), [], `nothing overflows at ${width} pixels`)

  // No URL of the log has become markup, and only links to http and https are links.
  assert.match(await page.title(), /^refetchd, /)
  assert.equal(await page.$$eval('script, [onload], [onmouseover]', found => found.length), 0)
  const schemes = await page.$$eval('a', links => links.map(link => link.protocol))
  assert.deepEqual([...new Set(schemes)], ['http:'])
  const text = await page.$eval('body', body => body.textContent)
  for (const shown of ['"><script>document.title="executed"</script>', 'javascript:document.title',
    '\\xe2\\x80\\xaegnp.exe', '\\x00\\x1b[2J</title>']) {
    assert.ok(text.includes(shown), `the page shows ${shown}`)
  }

  // The page forbids scripts, also axe: it runs in an isolated world.
  const world = await page.mainFrame().isolatedRealm()
  await world.evaluate(require('axe-core').source)
  const { violations } = await world.evaluate(() => globalThis.axe.run())
  const found = violations.map(({ id, nodes }) => [id, nodes.slice(0, 3).map(node => node.failureSummary + node.html)])
  assert.deepEqual(found, [], `axe at ${width} pixels, ${scheme}`)
  await page.pdf({ path: path.join(screenshots, 'report.pdf'), format: 'A4' })
  await page.close()
}

for (const [width, scheme] of [[360, 'light'], [360, 'dark'], [1280, 'light'], [1280, 'dark']]) {
  await check(width, scheme)
  console.log(`  ${width} pixels, ${scheme}`)
}
await browser.close()
clearTimeout(deadline)
