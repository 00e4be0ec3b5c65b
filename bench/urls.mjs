// Compares the URLs that the agent makes of links with those that browsers ask for. Run by
// bench/urls:
//
//   urls.mjs pages PROGRAM DIRECTORY [SAMPLES]   the links of all pages below DIRECTORY
//   urls.mjs fuzz PROGRAM SECONDS                random links
//
// PROGRAM is page_urls. The second opinion is parse5 and the URL class of node.
import { spawn } from 'node:child_process';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import readline from 'node:readline';

const utf8 = 'utf-8';
const longestLink = 4095;

// ---- What browsers ask for

// The encoding of a page that is served without one, found as browsers find it, in its first bytes.
function encodingOf(bytes) {
    if (bytes[0] === 0xef && bytes[1] === 0xbb && bytes[2] === 0xbf) return utf8;
    const start = bytes.subarray(0, 1024).toString('latin1').replace(/<!--.*?-->/gs, '');
    const label = /<meta[^>]*?charset\s*=\s*["']?\s*([^\s"'\/;>]+)/i.exec(start)?.[1] ?? 'windows-1252';
    try {
        const name = new TextDecoder(label).encoding;
        return name.startsWith('utf-16') ? utf8 : name;
    } catch {
        return 'windows-1252';
    }
}

const encoded = (byte) => `%${byte.toString(16).toUpperCase()}`;
const encoders = new Map();

// A table from characters to their percent-encoded bytes, made by decoding all of one or two bytes.
function encoderOf(encoding) {
    if (!encoders.has(encoding)) {
        const table = new Map();
        const decoder = new TextDecoder(encoding, { fatal: true });
        const add = (...bytes) => {
            try {
                const text = decoder.decode(Uint8Array.from(bytes));
                if ([...text].length === 1 && !table.has(text))
                    table.set(text, bytes.map(encoded).join(''));
            } catch {}
        };
        for (let a = 0x80; a < 0x100; a++) add(a);
        for (let a = 0x81; a < 0xff; a++) for (let b = 0x40; b < 0xff; b++) add(a, b);
        encoders.set(encoding, table);
    }
    return encoders.get(encoding);
}

// The path without "." and "..", which node 20 keeps behind names that begin with a dot.
function withoutDots(pathname) {
    const kept = [];
    const segments = pathname.split('/').slice(1);
    for (const [at, segment] of segments.entries()) {
        const isUp = segment === '..';
        if (isUp) kept.pop();
        if (!isUp && segment !== '.') kept.push(segment);
        else if (at === segments.length - 1) kept.push('');
    }
    return `/${kept.join('/')}`;
}

// The URL of a request for `link`: without user name, password and fragment. Null when there is
// none, or another scheme than those of the web. The query is in the encoding of the page.
function resolve(link, base, encoding = utf8) {
    if (encoding !== utf8 && /\?.*[^\0-\x7f]/s.test(link)) {
        const table = encoderOf(encoding);
        link = link.replace(/\?[^#]*/, (query) =>
            query.replace(/[^\0-\x7f]/gu, (c) => table.get(c) ?? `%26%23${c.codePointAt(0)}%3B`));
    }
    let url;
    try {
        url = new URL(link, base);
    } catch {
        return null;
    }
    url.username = url.password = url.hash = '';
    // node 20 does not encode "^", as the URL Standard has done since 2024.
    if (/\^|\/\.\.?(\/|$)/.test(url.pathname)) url.pathname = withoutDots(url.pathname.replaceAll('^', '%5E'));
    return url;
}

// The URLs of a srcset, by the rules of HTML: blanks end a URL, a comma ends a candidate except
// inside the brackets of a descriptor.
function* candidates(set) {
    for (let at = 0; ; ) {
        at += /^[\s,]*/.exec(set.slice(at))[0].length;
        if (at >= set.length) return;
        const url = /^\S+/.exec(set.slice(at))[0];
        at += url.length;
        yield url.replace(/,+$/, '');
        if (url.endsWith(',')) continue;
        for (let depth = 0; at < set.length && (depth > 0 || set[at] !== ','); at++) {
            if (set[at] === '(') depth++;
            else if (set[at] === ')') depth = Math.max(0, depth - 1);
        }
    }
}

function refreshUrl(content) {
    const match = /^\s*(?:\d+[\d.]*|\.[\d.]*)\s*(?:[;,\s]\s*)(?:url\s*=\s*)?(.*)$/is.exec(content);
    if (!match) return '';
    const quote = /^["']/.exec(match[1])?.[0];
    return quote ? match[1].slice(1).split(quote, 1)[0] : match[1];
}

const oneLink = (name) => (attrs) => [attrs[name]];
const image = (attrs) => [attrs.src, ...candidates(attrs.srcset ?? '')];
const useless = new Set(['dns-prefetch', 'preconnect', 'pingback', 'profile']);

// What the agent looks for.
const linksOf = {
    a: oneLink('href'),
    area: oneLink('href'),
    audio: oneLink('src'),
    body: oneLink('background'),
    embed: oneLink('src'),
    frame: oneLink('src'),
    iframe: oneLink('src'),
    img: image,
    input: (attrs) => (attrs.type?.toLowerCase() === 'image' ? [attrs.src] : []),
    link: (attrs) => {
        const words = (attrs.rel ?? '').toLowerCase().split(/\s+/).filter((word) => word);
        if (words.length > 0 && words.every((word) => useless.has(word))) return [];
        return [attrs.href, ...candidates(attrs.imagesrcset ?? '')];
    },
    meta: (attrs) =>
        attrs['http-equiv']?.toLowerCase() === 'refresh' ? [refreshUrl(attrs.content ?? '')] : [],
    object: oneLink('data'),
    script: oneLink('src'),
    source: image,
    track: oneLink('src'),
    video: (attrs) => [attrs.src, attrs.poster],
};

// All elements in the order of the page, and whether they are hidden: in a template, which only
// scripts use, or in text for browsers without frames.
function* elements(root, parse) {
    for (const stack = [[root, false]]; stack.length > 0; ) {
        const [node, isHidden] = stack.pop();
        if (node.tagName) yield [node, isHidden];
        if (node.tagName === 'template') stack.push([node.content, true]);
        if (node.tagName === 'noframes') for (const text of node.childNodes) stack.push([parse(text.value), true]);
        for (const child of (node.childNodes ?? []).toReversed()) stack.push([child, isHidden]);
    }
}

// The links of the page, as objects of tag, link, URL and isHidden.
function browserLinks(bytes, page, parser) {
    const encoding = encodingOf(bytes);
    const parse = (text) => parser.parse(text, { scriptingEnabled: false });
    let base = page;
    let hasBase = false;
    const links = [];
    for (const [{ tagName: tag, attrs }, isHidden] of elements(parse(new TextDecoder(encoding).decode(bytes)), parse)) {
        const values = Object.fromEntries(attrs.map(({ name, value }) => [name, value]));
        if (tag === 'base' && values.href !== undefined && !hasBase && !isHidden) {
            hasBase = true;
            base = resolve(values.href, page, encoding) ?? page;
        }
        for (const link of linksOf[tag]?.(values) ?? [])
            if (link && Buffer.byteLength(link) <= longestLink) links.push({ tag, link, isHidden, from: base });
    }
    // What is loaded with the page is resolved when it is read; a link for the reader, when it is followed.
    for (const one of links)
        one.url = resolve(one.link, one.tag === 'a' || one.tag === 'area' ? base : one.from, encoding)?.href ?? '';
    return links.filter(({ url }) => /^https?:/.test(url) && url !== page);
}

// ---- Comparison with the agent

function start(program, mode) {
    const child = spawn(program, [mode], { stdio: ['pipe', 'pipe', 'inherit'] });
    const lines = readline.createInterface({ input: child.stdout })[Symbol.asyncIterator]();
    return {
        write: (...texts) => child.stdin.write(Buffer.concat(texts.flatMap((t) => [Buffer.from(t), Buffer.of(0)]))),
        end: () => child.stdin.end(),
        next: async () => {
            const { value, done } = await lines.next();
            if (done) throw new Error(`${program} ended early`);
            return value;
        },
    };
}

const causes = [
    ['beyond ASCII', /[^\0-\x7f]/],
    ['no web scheme', /^\s*(?!https?:)[a-z][a-z0-9+.-]*:/i],
    ['backslash', /\\/],
    ['blank, tab or line end', /\s/],
    ['to be encoded', /["<>`{}^|']/],
    ['another host', /^\/\//],
    ['"//" in the path', /.\/\/.*\/\/|^[^:?]*\/\//],
    ['dots', /(^|\/)\.{1,2}($|\/)/],
    ['query', /\?/],
];
const causeOf = (link) => causes.find(([, pattern]) => pattern.test(link))?.[0] ?? 'other';

const share = (part, all) => (all === 0 ? '' : `${((100 * part) / all).toFixed(3)} %`);

class Tally {
    rows = new Map();
    samples = new Map();
    constructor(limit) {
        this.limit = limit;
    }
    count(group, isGood) {
        const row = this.rows.get(group) ?? [0, 0];
        row[0]++;
        row[1] += isGood ? 1 : 0;
        this.rows.set(group, row);
    }
    sample(group, text) {
        const list = this.samples.get(group) ?? [0, []];
        if (list[0]++ < this.limit) list[1].push(text.slice(0, 600));
        this.samples.set(group, list);
    }
    print(title) {
        console.log(`\n${title.padEnd(34)}links      equal`);
        for (const [group, [all, good]] of [...this.rows].sort())
            console.log(`  ${group.padEnd(24)}${String(all).padStart(13)}  ${share(good, all).padStart(9)}`);
    }
    printSamples() {
        for (const [group, [all, list]] of [...this.samples].sort(([, a], [, b]) => b[0] - a[0])) {
            console.log(`\n${group}: ${all}`);
            for (const text of list) console.log(`    ${text}`);
        }
    }
}

function* filesBelow(directory) {
    for (const entry of fs.readdirSync(directory, { withFileTypes: true, recursive: true }))
        if (entry.isFile()) yield path.join(entry.parentPath ?? entry.path, entry.name);
}

async function comparePages(program, directory, samples) {
    const parser = createRequire(import.meta.url)('parse5');
    const agent = start(program, 'pages');
    const byTag = new Tally(samples);
    const byPackage = new Tally(samples);
    const sums = { pages: 0, bytes: 0, links: 0, equal: 0, asked: 0, invented: 0, inventing: 0 };
    const files = [...filesBelow(directory)].sort();
    const urlOf = (file) =>
        new URL(path.relative(directory, file).split('/').map(encodeURIComponent).join('/'), 'http://docs.test/').href;
    for (const file of files) agent.write(file, urlOf(file));
    agent.end();
    for (const file of files) {
        const page = urlOf(file);
        const bytes = fs.readFileSync(file);
        const ours = new Set();
        for (let line; (line = await agent.next()) !== ''; )
            if (/^https?:/.test(line) && line !== page) ours.add(line);
        const links = browserLinks(bytes, page, parser);
        const seen = new Set();
        for (const { tag, link, url, isHidden } of links) {
            if (isHidden || seen.has(`${tag} ${url}`)) continue;
            seen.add(`${tag} ${url}`);
            const isEqual = ours.has(url);
            byTag.count(tag, isEqual);
            byPackage.count(path.relative(directory, file).split('/')[0], isEqual);
            if (!isEqual)
                byTag.sample(`missed, ${tag}, ${causeOf(link)}`, `${JSON.stringify(link)} -> ${url} on ${page}`);
            sums.links++;
            sums.equal += isEqual ? 1 : 0;
        }
        const wanted = new Set(links.map(({ url }) => url));
        const host = `${new URL(page).origin}/`;
        const same = [...ours].filter((url) => url.startsWith(host));
        const invented = same.filter((url) => !wanted.has(url));
        for (const url of invented) byTag.sample('asked for, but by no browser', `${url} on ${page}`);
        sums.pages++;
        sums.bytes += bytes.length;
        sums.asked += same.length;
        sums.invented += invented.length;
        sums.inventing += invented.length > 0 ? 1 : 0;
    }
    byPackage.print('package');
    byTag.print('tag');
    if (samples > 0) byTag.printSamples();
    console.log(`
pages                              ${sums.pages} (${(sums.bytes / 1e6).toFixed(0)} MB)
links of browsers                  ${sums.links}
  found and equal                  ${sums.equal} (${share(sums.equal, sums.links)})
the agent's URLs on the same host  ${sums.asked}
  that no browser asks for         ${sums.invented} (${share(sums.invented, sums.asked)}), on ${sums.inventing} pages`);
}

// ---- Random links

const pick = (list) => list[Math.floor(Math.random() * list.length)];
const several = (part, most) => Array.from({ length: Math.floor(Math.random() * (most + 1)) }, part).join('');
const anyByte = () => String.fromCharCode(1 + Math.floor(Math.random() * 255));
const asBytes = (text) => Buffer.from(text).toString('latin1'); // texts are strings of bytes here

const schemes = [
    'http:', 'https:', 'HTTP:', 'hTTps:', 'ht\ttp:', 'ftp:', 'mailto:', 'javascript:', 'x+y-1.:', '1x:', ':',
    'http', 'ws:', 'data:', 'file:',
];
const slashes = ['//', '/', '\\\\', '\\', '/\\', '///', '', '/\t/', '\n//', '////'];
// Without names for which node 20 has other rules than browsers: letters that are written from right
// to left, and joiners between letters.
const labels = [
    'a', 'x', 'WWW', 'example', 'test', 'com', '1', '127', '0x7f', '0', '256', '08', '4294967295', '0X', 'a_b',
    '-a-', 'r3---sn', 'xn--bcher-kva', 'XN--tda',
    'a%41', '%2e', '%zz', '%00', '', 'a b', '!', '*', "'", '"', '`', '{', '}', '|', '^', '<', ',', ';', '~', '$',
    '&', '(', '+', '=',
   
    ...['ü', 'BÜCHER', 'ß', 'ẞ', 'ς', '日本', '❤', '💩', 'ａ', '１', '℀', '½', 'e\u0301'].map(asBytes),
    ...['\u00ad', '\u200b', '\u200d', '\ufffd', '\u00a0', '\u3000', '👨‍👩‍👧'].map(asBytes),
    '%C3%BC', '%ff', '\xff', '\xc3', '\x7f', '\x01',
];
const dots = ['.', '.', '.', '', '..', '%2e', asBytes('。'), asBytes('．')];
const numbers = [
    '0', '1', '127', '255', '256', '0x', '0x7f', '0XfF', '017', '08', '65536', '16777216', '4294967296', '1e3',
    '-1', '', 'g',
];
const pieces = [...'0123456789abcdefABCDEF:::::.[]%'];
const ports = [
    '', ':', ':80', ':443', ':8080', ':0', ':00080', ':65535', ':65536', ':x', ':8\t0', ': 80', ':80:', ':-1',
    ':21',
];
const users = ['', '', '', '', 'u@', 'u:p@', ':@', '@', 'a@b@', '%40@', 'u/@', 'a:b\\@', '[@', asBytes('ü@')];
const segments = [
    'a', 'b', '.', '..', '...', '%2e', '%2E%2e', '.%2e', '..a', '', 'a b', 'c:', ':', '@', '%', '%4', '%zz', '%41',
    ';x', '*', '~', 'a=b', '"', "'", '<', '>', '`', '{', '}', '|', '^', '[', ']', '$&+,', '\x01', '\x7f', '\x80',
    '\xff', asBytes('é'), asBytes('日'), asBytes('💩'), '\t', '\n', '\r', ' ',
];
const between = ['/', '/', '/', '//', '\\', '/\t/', ''];
const queries = [
    '', '', '?', '?a=b&c', '?a//b/../c', '?/', '??', '?\\', '? ', "?'", '?"<>`{}|^[]', '?%', '?%zz', asBytes('?é'),
    '?\xff', '?a:b@c', '?\t', '?\x01\x7f',
];
const fragments = ['', '', '', '#', '#f', '# a', '#?', '#/', '##', asBytes('#é')];
const edges = ['', '', '', '', '', ' ', '\t', '\n', '\x01', '\x1f ', '\f', asBytes('\u00a0'), '\ufeff'.slice(1)];

const name = () => several(() => pick(labels) + pick(dots), 3) + pick(labels);
const group = () => `${pick(['0', '1', 'f00d', 'FFFF', '00012', ''])}:`;
const hosts = [
    name,
    name,
    name,
    () => several(() => `${pick(numbers)}.`, 3) + pick(numbers),
    () => `[${several(() => pick(pieces), 12)}]`,
    () => `[${several(group, 8)}${pick(['', ':', '1', '1.2.3.4', '1.2.3.256', '%25e'])}]`,
];
const host = () => pick(users) + pick(hosts)() + pick(ports);
const pathOf = () => several(() => pick(between) + pick(segments), 6);
const tail = () => pathOf() + pick(queries) + pick(fragments);
const forms = [
    () => pick(schemes) + pick(slashes) + host() + tail(),
    () => pick(['http:', 'https:']) + '//' + host() + tail(),
    () => pick(slashes) + host() + tail(),
    tail,
    () => pick(segments) + tail(),
    () => pick(schemes) + tail(),
    () => several(anyByte, 12),
    () => pick(['http://', '//', '']) + several(() => pick([...'/\\.:?#@%[] \ta1', anyByte()]), 14),
];
function randomLink() {
    const link = pick(edges) + pick(forms)() + pick(edges);
    if (Math.random() > 0.2 || link === '') return link;
    const at = Math.floor(Math.random() * link.length);
    return link.slice(0, at) + pick(['', anyByte(), link.slice(0, at)]) + link.slice(at + 1);
}
const bases = [
    'http://h.test/', 'https://h.test:8443/a/b?c', 'http://h.test/a//b/c/', 'https://h.test/a;b/../c',
    'http://[::1]:8080/x/y/z', 'http://1.2.3.4/?q',
];

// One character in UTF-8, or a byte that begins none.
const three = /(?:\xe0[\xa0-\xbf]|\xed[\x80-\x9f]|[\xe1-\xec\xee\xef][\x80-\xbf])[\x80-\xbf]/;
const four = /(?:\xf0[\x90-\xbf]|\xf4[\x80-\x8f]|[\xf1-\xf3][\x80-\xbf])[\x80-\xbf]{2}/;
const character = new RegExp(`[\\0-\\x7f]|[\\xc2-\\xdf][\\x80-\\xbf]|${three.source}|${four.source}|(.)`, 'gs');

// What browsers make of it. Bytes that are not UTF-8 are percent-encoded one by one, as the agent
// does; browsers would have read U+FFFD instead.
function expected({ link, base }) {
    const text = link.replace(character, (all, byte) => (byte === undefined ? all : encoded(byte.charCodeAt(0))));
    const url = resolve(Buffer.from(text, 'latin1').toString(), base);
    const isUrl = url !== null && /^(https?|ftp):$/.test(url.protocol);
    // node 20 takes names such as "xn--a-", which encode nothing; browsers refuse them.
    return isUrl && !/(^|\.)xn--[^.]*-(\.|$)/.test(url.hostname) ? url.href : '-';
}

// Those of the links of which the agent makes another URL.
async function differing(agent, links) {
    for (const { base, link } of links) agent.write(base, Buffer.from(link, 'latin1'));
    const found = [];
    for (const one of links) {
        const ours = await agent.next();
        const theirs = expected(one);
        if (ours !== theirs) found.push({ ...one, ours, theirs });
    }
    return found;
}

// Removes bytes from the link for as long as the difference stays.
async function shorten(agent, found) {
    for (let shorter = found; shorter !== undefined; ) {
        found = shorter;
        const { base, link } = found;
        const tries = [...link].map((_, at) => ({ base, link: link.slice(0, at) + link.slice(at + 1) }));
        [shorter] = await differing(agent, tries);
    }
    return found;
}

async function fuzz(program, seconds) {
    const agent = start(program, 'links');
    const shortest = new Map();
    let links = 0;
    let differences = 0;
    for (const end = Date.now() + seconds * 1000; Date.now() < end; links += 1000) {
        const batch = Array.from({ length: 1000 }, () => ({ base: pick(bases), link: randomLink() }));
        for (const found of await differing(agent, batch)) {
            differences++;
            if (shortest.size >= 200) continue;
            const short = await shorten(agent, found);
            shortest.set(short.link, short);
        }
    }
    agent.end();
    for (const { base, link, ours, theirs } of [...shortest.values()].sort((a, b) => a.link.length - b.link.length)) {
        console.log(`${JSON.stringify(Buffer.from(link, 'latin1').toString())} on ${base}`);
        console.log(`    agent   ${ours}\n    browser ${theirs}`);
    }
    console.log(`\nlinks             ${links}\ndifferent         ${differences}\nafter shortening  ${shortest.size}`);
}

const [mode, program, what, samples = '0'] = process.argv.slice(2);
if (mode === 'pages') await comparePages(program, what, Number(samples));
else await fuzz(program, Number(what));
