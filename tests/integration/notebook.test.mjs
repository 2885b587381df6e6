// The example notebook as a user meets it: notes over HTTP, followed by the client kesa, kept across a kill.
// Usage: node notebook.test.mjs PATH-OF-NOTEBOOK PATH-OF-KESA

import assert from 'node:assert/strict';
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { afterEach, beforeEach, test } from 'node:test';
import { Program, startService } from './service-process.mjs';

const [NOTEBOOK, KESA] = process.argv.slice(2);
const NOTES = '/notebook/notes';
let folder;
let file;
let programs;

async function start() {
    const service = await startService(NOTEBOOK, ['--file', file, '--port', '0']);
    programs.push(service);
    return service;
}

/** The client kesa following a URL; messages() skips to the next notification. */
function follow(service, url) {
    const client = new Program(KESA, ['watch', '--json', service.host + url]);
    programs.push(client);
    client.message = async (type = 'data') => {
        for (;;) {
            const message = JSON.parse(await client.line());
            if (message.type === type) return message;
        }
    };
    return client;
}

beforeEach(() => {
    folder = mkdtempSync(join(tmpdir(), 'kesa-notebook-'));
    file = join(folder, 'notes.db');
    programs = [];
});

afterEach(() => {
    for (const program of programs) program.process.kill('SIGKILL');
    rmSync(folder, { recursive: true });
});

test('a note is written, changed, followed and deleted', async () => {
    const service = await start();
    const list = follow(service, NOTES);
    assert.deepEqual((await list.message()).data, []);

    const created = await service.request('POST', NOTES, { text: 'Buy milk', tags: ['home'] });
    assert.equal(created.status, 201);
    const url = created.headers.get('location');
    assert.equal(url, created.json.data.uri);
    assert.deepEqual(created.json.data, { id: created.json.data.id, uri: url, text: 'Buy milk', tags: ['home'] });
    assert.deepEqual((await list.message()).data, [created.json.data]);

    const note = follow(service, url);
    assert.deepEqual((await note.message()).data, created.json.data);
    const updated = await service.request('POST', url, { done: true });
    assert.equal(updated.status, 200);
    assert.deepEqual((await note.message()).data, { ...created.json.data, done: true });
    const trimmed = await service.request('DELETE', url + '?$fields=tags');
    assert.equal(trimmed.status, 200);
    const { tags, ...rest } = { ...created.json.data, done: true };
    assert.deepEqual((await note.message()).data, rest);
    assert.deepEqual((await service.request('GET', url)).json.data, rest);

    assert.equal((await service.request('DELETE', url)).status, 200);
    assert.deepEqual((await list.message()).data, []);
    assert.equal((await note.message('error')).code, 410);
    assert.equal((await service.request('GET', url)).status, 404);
});

test('what a note is made of is known, and asking for more is told', async () => {
    const service = await start();
    await service.request('POST', NOTES, { text: 'b', done: false });
    await service.request('POST', NOTES, { text: 'a', done: true });
    const sorted = await service.request('GET', NOTES + '?$sortby=text&$fields=text');
    assert.deepEqual(sorted.json.data.map((note) => note.text), ['a', 'b']);
    const unknown = await service.request('GET', NOTES + '?$sortby=colour');
    assert.equal(unknown.status, 400);
    assert.match(unknown.json.message, /colour/);
});

test('notes outlive a kill and come back in their order', async () => {
    let service = await start();
    const written = [];
    for (let i = 0; i < 20; ++i) {
        const { json } = await service.request('POST', NOTES, { text: `note ${i}`, number: i });
        written.push(json.data);
    }
    assert.equal(await service.end('SIGKILL'), null);
    service = await start();
    assert.deepEqual((await service.request('GET', NOTES)).json.data, written);
    assert.equal(await service.end('SIGTERM'), 0);
});

test('a second notebook cannot have the file', async () => {
    const service = await start();
    const second = new Program(NOTEBOOK, ['--file', file, '--port', '0']);
    assert.equal(await second.status(), 1);
    assert.match(second.errors, /notes\.db is in use already/);
    assert.equal((await service.request('POST', NOTES, { text: 'still here' })).status, 201);
});

test('a file that is no notebook is refused and left alone', async () => {
    writeFileSync(file, 'Dear diary');
    const program = new Program(NOTEBOOK, ['--file', file, '--port', '0']);
    assert.equal(await program.status(), 1);
    assert.match(program.errors, /notes\.db .*left as it is/);
    assert.equal(readFileSync(file, 'utf8'), 'Dear diary');
});
