#!/usr/bin/env node
// A native-messaging host that does nothing but answer: it says hello and
// answers every "rateItems" page message at once, each link "safe", without
// asking any service. Registered in wren-bridge's place by
// browser_roundtrip.mjs, it gives what the browser itself costs for a round
// trip. Ends when the browser closes its stdin.
import os from 'node:os';

const LITTLE = os.endianness() === 'LE';
let pending = Buffer.alloc(0);

function send(frame) {
  const body = Buffer.from(JSON.stringify(frame));
  const length = Buffer.alloc(4);
  if (LITTLE) length.writeUInt32LE(body.length);
  else length.writeUInt32BE(body.length);
  process.stdout.write(Buffer.concat([length, body]));
}

function handle(frame) {
  if (frame?.type !== 'message' || frame.name !== 'rateItems') return;
  const urls = Array.isArray(frame.userInfo?.urls) ? frame.userInfo.urls : [];
  send({ type: 'message', name: 'rateItems', page: frame.page,
    userInfo: { results: urls.map((u) => ({ url: u.url, id: u.id, level: 1 })) } });
}

process.stdin.on('data', (chunk) => {
  pending = Buffer.concat([pending, chunk]);
  while (pending.length >= 4) {
    const length = LITTLE ? pending.readUInt32LE(0) : pending.readUInt32BE(0);
    if (pending.length < 4 + length) break;
    const text = pending.subarray(4, 4 + length).toString('utf8');
    pending = pending.subarray(4 + length);
    try {
      handle(JSON.parse(text));
    } catch {
      // not JSON: dropped
    }
  }
});
process.stdin.on('end', () => process.exit(0));
send({ type: 'hello', version: '0.0.0', protocol: 1 });
