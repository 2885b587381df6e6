// A foreign websocket client, and a handshake as a browser makes it, against a real service of this machine.
// Usage: node websocket.test.mjs PATH-OF-SYSTEM-MONITOR, with the package ws beside this file.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import http from 'node:http';
import { after, before, test } from 'node:test';
import readline from 'node:readline';
import WebSocket from 'ws';

const PATIENCE = 20_000; // ms: an upper bound for what takes a moment, also under a sanitizer
const NOT_SUBSCRIBED = 404;

/** Fails when `promise` takes longer than PATIENCE. */
async function soon(promise, what) {
    let timer;
    const late = new Promise((_, reject) => {
        timer = setTimeout(() => reject(new Error(`waited ${PATIENCE} ms in vain for ${what}`)), PATIENCE);
    });
    try {
        return await Promise.race([promise, late]);
    } finally {
        clearTimeout(timer);
    }
}

/** The service as a process of its own, on a port that the kernel chose. */
class Service {
    async start() {
        this.process = spawn(process.argv[2], ['--port', '0'], { stdio: ['ignore', 'pipe', 'inherit'] });
        this.ended = once(this.process, 'exit');
        this.ended.catch(() => {});
        const lines = readline.createInterface({ input: this.process.stdout });
        const [line] = await soon(once(lines, 'line'), 'the line that tells the port');
        this.url = new URL(line.match(/listening on (http:\S+)/)[1]);
    }

    websocketUrl() {
        return `ws://${this.url.host}/`;
    }

    /** Ends the process as an operator does; gives its exit status. */
    async stop() {
        this.process.kill('SIGTERM');
        const [status] = await soon(this.ended, 'the end of the service');
        return status;
    }

    kill() {
        this.process.kill('SIGKILL');
    }

    async get(path) {
        const response = await fetch(new URL(path, this.url));
        return { status: response.status, body: await response.json() };
    }
}

/** A connection that keeps every message in order. */
class Client {
    static async connect(url, options = {}) {
        const client = new Client();
        client.socket = new WebSocket(url, options);
        client.messages = [];
        client.waiting = [];
        client.socket.on('message', (data, isBinary) => {
            assert.equal(isBinary, false);
            client.messages.push(JSON.parse(data.toString()));
            client.waiting.splice(0).forEach((wake) => wake());
        });
        client.closed = once(client.socket, 'close').then(([code, reason]) => ({ code, reason: reason.toString() }));
        client.closed.catch(() => {});
        await soon(once(client.socket, 'open'), 'the upgrade');
        return client;
    }

    send(message) {
        this.socket.send(typeof message === 'string' ? message : JSON.stringify(message));
    }

    /** The oldest message for which `wanted` holds; it and those before it are taken away. */
    async next(wanted = () => true, what = 'a message') {
        const search = async () => {
            for (;;) {
                const index = this.messages.findIndex(wanted);
                if (index >= 0) return this.messages.splice(0, index + 1)[index];
                await new Promise((resolve) => this.waiting.push(resolve));
            }
        };
        return soon(search(), what);
    }

    async close() {
        this.socket.close(1000);
        return soon(this.closed, 'the closing handshake');
    }
}

const service = new Service();
before(() => service.start());
after(() => service.kill());

/** The URL of an element whose figures change all the time: memory. */
async function movingElement() {
    const { body } = await service.get('/system/memory');
    return body.data[0].uri;
}

test('acknowledgement, first data, later notifications, unsubscribe', async () => {
    const event = await movingElement();
    const client = await Client.connect(service.websocketUrl());
    client.send({ type: 'subscribe', event, updateLimit: 0 });
    assert.deepEqual(await client.next(), { type: 'subscribe', event, status: 'ok' });

    const first = await client.next();
    assert.equal(first.type, 'data');
    assert.equal(first.event, event);
    assert.equal(typeof first.data, 'object');

    let previous = first;
    for (let i = 0; i < 2; ++i) {
        const later = await client.next((m) => m.type === 'data', 'a later notification');
        assert.equal(later.event, event);
        assert.notDeepEqual(later.data, previous.data, 'nothing is sent when the data has not changed');
        previous = later;
    }

    client.send({ type: 'unsubscribe', event });
    const reply = await client.next((m) => m.type !== 'data', 'the acknowledgement of the unsubscribe');
    assert.deepEqual(reply, { type: 'unsubscribe', event, status: 'ok' });

    const observer = await Client.connect(service.websocketUrl());
    observer.send({ type: 'subscribe', event, updateLimit: 0 });
    for (let i = 0; i < 3; ++i) await observer.next((m) => m.type === 'data', 'notifications of another client');
    assert.deepEqual(client.messages, [], 'nothing arrives after an unsubscribe');

    client.send({ type: 'unsubscribe', event });
    assert.equal((await client.next()).code, NOT_SUBSCRIBED);
    assert.equal((await observer.close()).code, 1000);
    assert.equal((await client.close()).code, 1000);
});

test('two clients follow the same element', async () => {
    const event = await movingElement();
    const clients = await Promise.all([1, 2].map(() => Client.connect(service.websocketUrl())));
    for (const client of clients) client.send({ type: 'subscribe', event, updateLimit: 0 });
    for (const client of clients) {
        assert.equal((await client.next()).status, 'ok');
        for (let i = 0; i < 2; ++i) assert.equal((await client.next((m) => m.type === 'data')).event, event);
        await client.close();
    }
});

test('a periodic subscription repeats its data, each time with a new time stamp', async () => {
    const event = await movingElement();
    const client = await Client.connect(service.websocketUrl());
    client.send({ type: 'subscribe', event, interval: 50 });
    assert.equal((await client.next()).status, 'ok');
    assert.equal((await client.next()).event, event); // the first data, at once
    let previous = -1;
    for (let i = 0; i < 4; ++i) {
        const { timestamp } = await client.next();
        assert.ok(Number.isInteger(timestamp) && timestamp > previous, `${timestamp} after ${previous}`);
        previous = timestamp;
    }
    await client.close();
});

test('what is not there is refused with 404', async () => {
    const client = await Client.connect(service.websocketUrl());
    client.send({ type: 'subscribe', event: '/system/nothing/at-all' });
    const refusal = await client.next();
    assert.equal(refusal.type, 'error');
    assert.equal(refusal.status, 'error');
    assert.equal(refusal.code, 404);
    assert.equal(refusal.event, '/system/nothing/at-all');
    assert.ok(refusal.message.length > 0);
    await client.close();
});

test('bad messages get an error document and the connection lives on', async () => {
    const client = await Client.connect(service.websocketUrl());
    const bad = [
        'no json', '[]', '{}', '{"type":"subscribe"}', '{"event":"/system"}', '{"type":5,"event":"/system"}',
        '{"type":"subscribe","event":""}', '{"type":"subscribe","event":"/system","interval":0}',
        '{"type":"subscribe","event":"/system","interval":1.5}', '{"type":"subscribe","event":"/system","updateLimit":-1}',
        '{"type":"subscribe","event":"/system","interval":2147483648}',
        '{"type":"subscribe","event":"/system","interval":18446744073709551616}',
        '{"type":"dance","event":"/system"}', '['.repeat(100_000),
    ];
    for (const message of bad) {
        client.send(message);
        const reply = await client.next(undefined, `a reply to ${message.slice(0, 80)}`);
        assert.equal(reply.type, 'error', message.slice(0, 80));
        assert.equal(reply.code, 400, message.slice(0, 80));
        assert.ok(reply.message.length > 0);
    }
    client.send({ type: 'data', event: '/system' });
    const reply = await client.next();
    assert.equal(reply.code, 400);
    assert.equal(reply.message, "The service registry can emit 'data' events but does not receive those.");
    await client.close();
});

test('binary messages close with 1003', async () => {
    const client = await Client.connect(service.websocketUrl());
    client.socket.send(Buffer.from('{}'));
    assert.equal((await soon(client.closed, 'the close')).code, 1003);
});

test('a message over the bound closes with 1009', async () => {
    const client = await Client.connect(service.websocketUrl());
    client.socket.on('error', () => {});
    client.socket.send('x'.repeat(1024 * 1024 + 1));
    assert.equal((await soon(client.closed, 'the close')).code, 1009);
});

test('a ping is answered with its own payload', async () => {
    const client = await Client.connect(service.websocketUrl());
    const pong = once(client.socket, 'pong');
    client.socket.ping('are you there?');
    const [payload] = await soon(pong, 'the pong');
    assert.equal(payload.toString(), 'are you there?');
    await client.close();
});

/** The answer to an upgrade request with these header fields on top of what every browser sends. */
function upgrade(fields) {
    return soon(new Promise((resolve, reject) => {
        const request = http.request(service.url, {
            headers: {
                Connection: 'keep-alive, Upgrade', Upgrade: 'websocket', 'Sec-WebSocket-Version': '13',
                'Sec-WebSocket-Key': 'dGhlIHNhbXBsZSBub25jZQ==', 'Cache-Control': 'no-cache', Pragma: 'no-cache',
                'Sec-WebSocket-Extensions': 'permessage-deflate; client_max_window_bits',
                'User-Agent': 'Mozilla/5.0 (X11; Linux x86_64) AppleWebKit/537.36', ...fields,
            },
        });
        request.on('upgrade', (response, socket) => {
            socket.destroy();
            resolve(response);
        });
        request.on('response', (response) => {
            response.resume();
            resolve(response);
        });
        request.on('error', reject);
        request.end();
    }), 'an answer to the upgrade');
}

test('a browser on a page of the same host is let in', async () => {
    const response = await upgrade({ Origin: `http://${service.url.host}` });
    assert.equal(response.statusCode, 101);
    assert.equal(response.headers['sec-websocket-accept'], 's3pPLMBiTxaQ9kYGzzhZRbK+xOo=');
    assert.equal(response.headers['sec-websocket-extensions'], undefined);
});

test('a browser on a foreign page is refused', async () => {
    assert.equal((await upgrade({ Origin: 'https://elsewhere.example' })).statusCode, 403);
});

test('a subscription works through a handshake with an origin', async () => {
    const event = await movingElement();
    const client = await Client.connect(service.websocketUrl(), { origin: `http://${service.url.host}` });
    client.send({ type: 'subscribe', event });
    assert.equal((await client.next()).status, 'ok');
    assert.equal((await client.next()).type, 'data');
    await client.close();
});

test('at its end the service says goodbye to each client and exits with 0', async () => {
    const leaving = new Service();
    await leaving.start();
    const clients = await Promise.all([1, 2, 3].map(() => Client.connect(leaving.websocketUrl())));
    assert.equal(await leaving.stop(), 0);
    for (const client of clients) assert.equal((await soon(client.closed, 'the goodbye')).code, 1001);
});
