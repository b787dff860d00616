// The test pages, served on free loopback ports: plain HTTP for everything,
// and HTTPS (a throwaway self-signed certificate) for the web-mail page that
// the browser reaches as https://mail.google.com/.
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import http from 'node:http';
import https from 'node:https';
import os from 'node:os';
import path from 'node:path';

export const MAIL_ADDRESS = 'wren.user@example.com';

// Links whose levels the simulator's built-in rules fix: 3 dangerous,
// 2 caution, 1 safe. bit.ly is a short link to the phishing host, so it is
// dangerous only when the host flags it for resolving.
export const RATED_LINKS = [
  { id: 'phish', href: 'http://phish.wren-test.example/login', level: 3 },
  { id: 'caution', href: 'http://caution.wren-test.example/offer', level: 2 },
  { id: 'safe', href: 'http://safe.wren-test.example/docs', level: 1 },
  { id: 'short', href: 'http://bit.ly/wren-test', level: 3 },
];

function html(title, body, head = '') {
  return `<!doctype html><html><head><meta charset="utf-8"><title>${title}</title>${head}</head><body>${body}</body></html>`;
}

const links = RATED_LINKS.map((l) => `<p><a id="${l.id}" href="${l.href}">${l.id}</a></p>`).join('\n');

const routes = {
  '/ready.html': html('Ready', '<p>ready</p>'),
  '/links.html': html('Links', `${links}
<iframe id="inner" src="/inner.html"></iframe>
<div id="later"></div>
<script>
  // A link that arrives after the page has loaded, as in feeds and mail.
  setTimeout(() => {
    const a = document.createElement('a');
    a.id = 'added'; a.href = 'http://malware.wren-test.example/payload'; a.textContent = 'added';
    document.getElementById('later').append(a);
  }, 300);
</script>`),
  '/inner.html': html('Inner', '<a id="framed" href="http://malware.wren-test.example/in-frame">framed</a>'),
  '/page.html': html('Page', '<p>a page of a questionable site</p>'),
  '/block.html': html('Blocked', '<p>This site was blocked.</p>', '<meta name="wren-block-page" content="1">'),
};

// A page that times things (bench/browser_roundtrip.mjs): cross-origin
// isolated, so that its clock is not coarsened to a tenth of a millisecond.
const TIMING_PAGE = '/timing.html';
routes[TIMING_PAGE] = html('Timing', '<p>timing</p>');
const ISOLATION_HEADERS = { 'cross-origin-opener-policy': 'same-origin', 'cross-origin-embedder-policy': 'require-corp' };

function serve(req, res) {
  const url = new URL(req.url, 'http://x');
  // The web-mail server answers every path with the inbox.
  const body = req.socket.encrypted
    ? html(`Inbox (3) - ${MAIL_ADDRESS} - Gmail`, '<p>3 new messages</p>')
    : routes[url.pathname];
  if (!body) {
    res.writeHead(404, { 'content-type': 'text/plain' }).end('not found');
    return;
  }
  res.writeHead(200, { 'content-type': 'text/html; charset=utf-8', 'cache-control': 'no-store',
    ...(url.pathname === TIMING_PAGE ? ISOLATION_HEADERS : {}) }).end(body);
}

function selfSignedCertificate() {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'wren-pages-cert-'));
  const key = path.join(dir, 'key.pem');
  const cert = path.join(dir, 'cert.pem');
  execFileSync('openssl', ['req', '-x509', '-newkey', 'rsa:2048', '-nodes', '-keyout', key, '-out', cert,
    '-days', '1', '-subj', '/CN=mail.google.com', '-addext', 'subjectAltName=DNS:mail.google.com'],
  { stdio: 'ignore' });
  const pair = { key: fs.readFileSync(key), cert: fs.readFileSync(cert) };
  fs.rmSync(dir, { recursive: true, force: true });
  return pair;
}

function listen(server) {
  return new Promise((resolve, reject) => {
    server.once('error', reject);
    server.listen(0, '127.0.0.1', () => resolve(server.address().port));
  });
}

export async function startPageServers() {
  const plain = http.createServer(serve);
  const secure = https.createServer(selfSignedCertificate(), serve);
  const httpPort = await listen(plain);
  const httpsPort = await listen(secure);
  return {
    // An address of a test page; `host` may be any *.wren-test.example name.
    url: (pathname, host = '127.0.0.1') => `http://${host}:${httpPort}${pathname}`,
    // The browser resolves mail.google.com to this machine.
    mailUrl: `https://mail.google.com:${httpsPort}/mail/u/0/#inbox`,
    async close() {
      for (const server of [plain, secure]) {
        server.closeAllConnections();
        await new Promise((resolve) => server.close(resolve));
      }
    },
  };
}
