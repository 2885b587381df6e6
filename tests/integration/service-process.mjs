// A service as a process of its own, for the tests beside this file.

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import readline from 'node:readline';

const PATIENCE = 20_000; // ms: an upper bound for what takes a moment, also under a sanitizer

/** Fails when `promise` takes longer than PATIENCE. */
export async function soon(promise, what) {
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

/** A program whose lines are read one by one. */
export class Program {
    constructor(path, args) {
        this.process = spawn(path, args, { stdio: ['ignore', 'pipe', 'pipe'] });
        this.ended = once(this.process, 'exit');
        this.errors = '';
        this.process.stderr.on('data', (text) => (this.errors += text));
        this.lines = readline.createInterface({ input: this.process.stdout })[Symbol.asyncIterator]();
    }

    async line() {
        const { value } = await soon(this.lines.next(), 'a line');
        return value;
    }

    /** Ends it with a signal and gives its exit status, null if the signal ended it. */
    async end(signal) {
        this.process.kill(signal);
        return this.status();
    }

    async status() {
        const [status] = await soon(this.ended, 'the end of a program');
        return status;
    }
}

/** A service that has told where it listens. */
export async function startService(path, args) {
    const program = new Program(path, args);
    const line = await program.line();
    if (!line?.startsWith('listening on ')) throw new Error(`the service did not start: ${program.errors}`);
    program.url = line.slice('listening on '.length);
    program.host = new URL(program.url).host;
    /** One HTTP request with an object as its body, if there is one: status, headers and the JSON of the answer. */
    program.request = async (method, url, body) => {
        const response = await fetch(program.url + url, {
            method,
            headers: body ? { 'Content-Type': 'application/json' } : {},
            body: body && JSON.stringify(body),
        });
        const text = await response.text();
        return { status: response.status, headers: response.headers, json: text ? JSON.parse(text) : undefined };
    };
    return program;
}
