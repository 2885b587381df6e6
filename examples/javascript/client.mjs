// One subscription from its beginning to its end, and what a service answers to mistakes; prints every message, "->" to and
// "<-" from the service:
//
//     node examples/javascript/client.mjs http://127.0.0.1:8920
//
// Runs where there is a WebSocket, in a browser too. Node.js has one from version 22; before that: npm install --no-save ws
const WebSocketClass = globalThis.WebSocket ?? (await import('ws')).default;

const url = process.argv[2] ?? 'http://127.0.0.1:8920';
const socket = new WebSocketClass(url.replace(/^http/, 'ws'));
const seconds = (count) => new Promise((resolve) => setTimeout(resolve, 1000 * count));

socket.addEventListener('message', ({ data }) => console.log('<-', data));
socket.addEventListener('close', ({ code, reason }) => console.log('closed with', code, reason));
socket.addEventListener('error', ({ message }) => {
  console.error(`cannot reach ${url}: ${message}`);
  process.exitCode = 1;
});
await new Promise((resolve) => socket.addEventListener('open', resolve));

// Sends a message and gives its answers a moment to arrive.
async function send(message, wait) {
  const text = JSON.stringify(message);
  console.log('->', text);
  socket.send(text);
  await seconds(wait);
}

// What changes, at most once in 100 ms; "$fields" keeps the messages short.
await send({ type: 'subscribe', event: '/system/memory/ram?$fields=usedBytes' }, 2);
await send({ type: 'unsubscribe', event: '/system/memory/ram' }, 0.1);
// The state every second, changed or not.
await send({ type: 'subscribe', event: '/system/memory/swap?$fields=usedPercent', interval: 1000 }, 1.5);
await send({ type: 'unsubscribe', event: '/system/memory/swap' }, 0.1);
// A list, and each of its elements.
await send({ type: 'subscribe', event: '/system/cpus?$fields=id', autosubscribe: true }, 0.2);
// Mistakes.
await send({ type: 'subscribe', event: '/system/tapes' }, 0.1);
await send({ type: 'unsubscribe', event: '/system/memory/ram' }, 0.1);
await send({ type: 'hello', event: '/system' }, 0.1);
await send('no object', 0.1);
socket.close(1000);
