// What a service says about itself in /service/$spec, before public judges, and beside what it really answers.
// Usage: node contract.test.mjs PATH-OF-NOTEBOOK, with the packages beside this file.

import assert from 'node:assert/strict';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { Parser } from '@asyncapi/parser';
import { Validator } from '@seriousme/openapi-schema-validator';
import Ajv2020 from 'ajv/dist/2020.js';
import addFormats from 'ajv-formats';
import WebSocket from 'ws';
import { soon, startService } from './service-process.mjs';

const SPEC = '/notebook/$spec';
const NOTES = '/notebook/notes';
const UNKNOWN_ID = '6ba7b810-9dad-11d1-80b4-00c04fd430c8';
const folder = mkdtempSync(join(tmpdir(), 'kesa-contract-'));
let service;
let openApi;
let asyncApi;

before(async () => {
    service = await startService(process.argv[2], ['--file', join(folder, 'notes.db'), '--port', '0']);
    openApi = (await service.request('GET', SPEC)).json;
    asyncApi = (await service.request('GET', SPEC + '?format=asyncapi')).json;
});

after(() => {
    service?.process.kill('SIGKILL');
    rmSync(folder, { recursive: true });
});

/** Whether `value` is as the schema at a JSON pointer of `document` says. */
function assertFits(document, pointer, value) {
    const ajv = new Ajv2020({ strict: false, allErrors: true });
    addFormats(ajv);
    ajv.addSchema({ $id: 'document:', paths: document.paths, components: document.components });
    const escaped = pointer.map((part) => encodeURIComponent(part.replaceAll('~', '~0').replaceAll('/', '~1')));
    const validate = ajv.compile({ $ref: 'document:#/' + escaped.join('/') });
    assert.ok(validate(value), `${JSON.stringify(value)}: ${ajv.errorsText(validate.errors)}`);
}

/** Sends a request, and holds the answer against the document. Gives the answer. */
async function judged(method, path, url, status, body) {
    const answer = await service.request(method, url, body);
    assert.equal(answer.status, status, `${method} ${url}`);
    const operation = openApi.paths[path][method.toLowerCase()];
    const response = operation.responses[status];
    assert.ok(response, `${method} ${path} tells of no ${status}`);
    if (response.$ref) assertFits(openApi, ['components', 'schemas', 'error'], answer.json);
    else if (response.content)
        assertFits(openApi, ['paths', path, method.toLowerCase(), 'responses', String(status), 'content',
            'application/json', 'schema'], answer.json);
    for (const header of url.includes('?') ? [] : Object.keys(response.headers ?? {}))
        assert.ok(answer.headers.has(header), `${method} ${url} has no ${header}`);
    return answer;
}

test('the OpenAPI document is valid', async () => {
    const result = await new Validator().validate(structuredClone(openApi));
    assert.ok(result.valid, JSON.stringify(result.errors));
    assert.deepEqual(openApi.info, {
        title: 'notebook', version: openApi.info.version, description: 'What I want to remember',
    });
});

test('the AsyncAPI document is valid', async () => {
    const { document, diagnostics } = await new Parser().parse(JSON.stringify(asyncApi));
    assert.deepEqual(diagnostics.filter((diagnostic) => diagnostic.severity === 0), []);
    assert.ok(document);
    assert.equal(asyncApi.servers.service.url, `ws://${service.host}`);
});

test('every URL and every method of the document is served', async () => {
    const note = (await service.request('POST', NOTES, { text: 'a' })).json.data;
    for (const [path, operations] of Object.entries(openApi.paths)) {
        const url = path.replace('{id}', note.id);
        const { headers, status } = await service.request('OPTIONS', url);
        assert.equal(status, 204);
        const told = Object.keys(operations).filter((key) => key !== 'parameters').map((key) => key.toUpperCase());
        assert.deepEqual(headers.get('allow').split(', ').sort(), told.sort(), url);
        await judged('GET', path, url, 200);
        assert.equal((await service.request('HEAD', url)).status, 200);
    }
});

test('answers are what the document says', async () => {
    const member = NOTES + '/{id}';
    const created = (await judged('POST', NOTES, NOTES, 201, { text: 'a', done: true, tags: [] })).json.data;
    await judged('GET', NOTES, NOTES + '?$offset=0&$limit=1&$sortby=-text&$q=a&done=true&$fields=text', 200);
    await judged('GET', member, created.uri + '?$fields=text', 200);
    await judged('POST', member, created.uri, 200, { text: 'b' });
    await judged('DELETE', member, created.uri + '?$fields=tags', 200);
    await judged('DELETE', member, created.uri, 200);
    await judged('PUT', member, created.uri, 201, { text: 'c' });
    await judged('PUT', member, created.uri, 409, { text: 'c' });
});

test('failures are what the document says', async () => {
    const member = NOTES + '/{id}';
    await judged('GET', NOTES, NOTES + '?$limit=0', 400);
    await judged('GET', SPEC, SPEC + '?format=wsdl', 400);
    await judged('GET', member, `${NOTES}/${UNKNOWN_ID}`, 404);
    await judged('POST', member, `${NOTES}/${UNKNOWN_ID}`, 404, { text: 'a' });
    await judged('DELETE', member, `${NOTES}/${UNKNOWN_ID}`, 404);
    await judged('POST', NOTES, NOTES, 400, { id: 'mine' });
    await judged('PUT', member, NOTES + '/no-uuid', 400, { text: 'a' });
});

test('the members of a note are told, those that the service sets as well', () => {
    const { properties, required } = openApi.components.schemas['element.notes'];
    assert.deepEqual(Object.keys(properties).sort(), ['done', 'id', 'tags', 'text', 'uri']);
    assert.deepEqual(required, ['id', 'uri']);
    const members = openApi.components.schemas['element.notes.members'].properties;
    assert.deepEqual(Object.keys(members).sort(), ['done', 'tags', 'text']);
});

test('messages of the websocket are what the document says', async () => {
    const created = (await service.request('POST', NOTES, { text: 'a', tags: ['b'] })).json.data;
    const client = new WebSocket(`ws://${service.host}/`);
    const texts = [];
    let arrived = () => {};
    client.on('message', (text) => (texts.push(text), arrived()));
    const next = async () => {
        while (texts.length === 0) await soon(new Promise((resolve) => (arrived = resolve)), 'a message');
        return JSON.parse(texts.shift());
    };
    const payload = (message) => ['components', 'messages', message, 'payload'];
    await soon(new Promise((resolve) => client.on('open', resolve)), 'the websocket');
    const exchange = async (message, name, ...answers) => {
        if (name) assertFits(asyncApi, payload(name), message);
        client.send(JSON.stringify(message));
        for (const answer of answers) assertFits(asyncApi, payload(answer), await next());
    };
    const subscribe = (event, more) => ({ type: 'subscribe', event, ...more });
    await exchange(subscribe('/'), 'subscribe', 'acknowledgement', 'entries');
    await exchange(subscribe('/notebook'), 'subscribe', 'acknowledgement', 'entries');
    await exchange(subscribe(NOTES + '?$limit=1'), 'subscribe', 'acknowledgement', 'list.element.notes');
    await exchange(subscribe(created.uri, { updateLimit: 0 }), 'subscribe', 'acknowledgement', 'element.notes');
    await exchange(subscribe(created.uri + '#often', { interval: 1 }), 'subscribe', 'acknowledgement',
        'element.notes', 'element.notes');
    await exchange({ type: 'unsubscribe', event: created.uri + '#often' });
    while (!(await next()).status);
    await exchange(subscribe('/nowhere'), 'subscribe', 'error');
    await exchange({ type: 'dance', event: NOTES }, undefined, 'error');
    client.close();
});
