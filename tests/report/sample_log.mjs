// Writes results logs of synthetic nights: node sample_log.mjs DIRECTORY [LINES]. The last run is this
// morning's, or that before $SOURCE_DATE_EPOCH. All verdicts and reasons occur, and URLs of attackers;
// the last night of one machine has LINES requests (default 640).
import fs from 'node:fs'
import path from 'node:path'

const [directory, lines = '640'] = process.argv.slice(2)
const now = Number(process.env.SOURCE_DATE_EPOCH ?? Date.now() / 1000) * 1000
const kDay = 86400000
let seed = 7
const random = below => (seed = (seed * 48271) % 2147483647) % below

// The verdicts of a usual night, in per cent, with reasons.
const usual = [
  [62, 'refreshed'], [8, 'stored'], [17, 'unchanged'], [4, 'not cacheable'], [2, 'unknown'],
  [4, 'served from cache', 'origin failed, old copy served'], [1, 'failed', 'status 404', 404],
  [1, 'failed', 'timed out', 0], [1, 'failed', 'status 503', 503]]
const hosts = ['www.example.com', 'shop.example.com', 'static.example.com', 'blog.example.org']
const drops = ['delvedepth', 'ignoreurl', 'cachequeries', 'maxhosturls']
const hostile = [
  'http://www.example.com/"><script>document.title="executed"</script>',
  'http://www.example.com/\'onmouseover=\'document.title="executed"',
  'javascript:document.title="executed"', 'data:text/html,<script>document.title="executed"</script>',
  'http://www.example.com/\u202egnp.exe', 'http://www.example.com/\u0000\u001b[2J</title></style><svg onload=alert(1)>',
  'http://www.example.com/' + 'a-very-long-name-without-a-place-to-break'.repeat(60)]

function pick() {
  let at = random(100)
  return usual.find(([share]) => (at -= share) < 0) ?? usual[0]
}

function writeRun(log, start, count, verdicts) {
  let time = start
  const put = entry => log.push(JSON.stringify({ time: new Date(time).toISOString(), ...entry }))
  for (let i = 0; i < count; ++i) {
    const [, verdict, why, status = 200] = verdicts()
    const ms = status === 0 ? 60000 + random(900) : 20 + random(400) * (1 + random(9))
    const name = ['', 'news/', 'products/', 'pictures/summer-holidays/'][i % 4]
    put({ url: `http://${hosts[random(12) % hosts.length]}/${name}${i}.html`, source: 'admin', depth: i % 3,
      status, bytes: status === 0 ? 0 : 900 + random(90000), ms, verdict, ...(why && { why }) })
    time += 20 + random(1000)
  }
  const put2 = (url, verdict, why, more) => put({ url, source: 'admin', depth: 1, status: 0, bytes: 0, ms: 0, verdict, why, ...more })
  drops.forEach((why, i) => put2(`http://www.example.com/left-out/${why}?q=${i}`, 'dropped', why))
  put2('http://www.example.com/archive', 'dropped', 'links of this page', { more: 118 })
  return { put: put2, end: () => log.push(JSON.stringify({ time: new Date(start).toISOString(), run: 1, runs: 1,
    seconds: Math.round((time - start) / 1000), left: 0 })) }
}

for (const machine of ['cache1', 'cache2']) {
  const log = []
  for (let night = 13; night >= 0; --night) {
    if (night === 5) continue
    const start = now - night * kDay - 6 * 3600000
    const bad = night === 9 ? () => [0, 'failed', 'no connection', 0] : pick
    const count = night === 0 && machine === 'cache1' ? Number(lines) : 380 + random(260)
    const run = writeRun(log, start, count, bad)
    if (night === 0) hostile.forEach((url, i) => run.put(url, 'failed', i % 2 ? 'no valid request' : 'status 400'))
    run.end()
  }
  fs.mkdirSync(path.join(directory, machine), { recursive: true })
  fs.writeFileSync(path.join(directory, machine, 'results.log'), log.join('\n') + '\n')
}
