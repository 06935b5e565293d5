// Tools for tests that treat a host badly: hosts with few resources, the holdings of a host, clients
// that speak the protocol byte by byte, and one that keeps calling meanwhile.

import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { constants, createHash, publicEncrypt, X509Certificate } from "node:crypto";
import { once } from "node:events";
import { lstatSync, readdirSync, readFileSync, readlinkSync, writeFileSync } from "node:fs";
import { connect } from "node:net";
import { join } from "node:path";
import { cannotInspect, longestWait, makeFolder, programs, startHost, waitFor, within } from "./harness.mjs";

/** Starts a host with limits of prlimit(1), such as "nofile=200:200". */
export function startLimitedHost(limits, options) {
    return startHostBy(`prlimit ${limits.map((limit) => `--${limit}`).join(" ")}`, options);
}

/** Starts a host whose n-th attempt to start a thread fails. */
export function startHostWithoutThread(n, options) {
    return startHostBy(`env TALVENSOR_FAILING_THREAD=${n} LD_PRELOAD="${programs.failingThreads}"`, options);
}

function startHostBy(command, options) {
    const script = join(makeFolder("limits"), "host");
    writeFileSync(script, `#!/bin/sh\nexec ${command} "${programs.host}" "$@"\n`, { mode: 0o755 });
    const { host } = programs;
    try {
        programs.host = script;
        return startHost(options); // has started the process when it returns its promise
    } finally {
        programs.host = host;
    }
}

/** Returns the numbers of a host's descriptors, which only root can see, and threads. */
export function holdings(host) {
    const count = (what) => readdirSync(`/proc/${host.pid}/${what}`).length;
    return { descriptors: cannotInspect ? undefined : count("fd"), threads: count("task") };
}

/** True under AddressSanitizer, which finds late uses by it. */
export const keepsFreedMemory = process.env.TALVENSOR_SANITIZER === "address";

/** True under sanitizers: they have memory of their own beside that of the host. */
export const hasShadowMemory = Boolean(process.env.TALVENSOR_SANITIZER);

/** True under sanitizers: they take several times as much as the host itself. */
export const takesMoreMemory = Boolean(process.env.TALVENSOR_SANITIZER);

/** Returns the memory of a host in megabytes: now, and the most that it ever had. */
export function memory(host) {
    const status = readFileSync(`/proc/${host.pid}/status`, "utf8");
    const read = (name) => Number(new RegExp(`^${name}:\\s+(\\d+) kB$`, "m").exec(status)[1]) / 1000;
    return { now: read("VmRSS"), most: read("VmHWM") };
}

/** Returns the bytes that wait in the system between a host and its clients. */
export function countPending(host) {
    const port = host.port.toString(16).toUpperCase().padStart(4, "0");
    const lines = readFileSync("/proc/net/tcp", "utf8").split("\n").filter((line) => line.includes(`:${port} `));
    const queues = lines.map((line) => line.trim().split(/\s+/)[4].split(":"));
    return queues.flat().reduce((sum, each) => sum + parseInt(each, 16), 0);
}

/** Waits until a host has as many descriptors and threads as before. */
export async function becomesWhole(host, before) {
    let now;
    const isWhole = () => {
        now = holdings(host);
        return now.descriptors === before.descriptors && now.threads === before.threads;
    };
    try {
        await waitFor("the host to let go", isWhole);
    } catch {
        assert.deepEqual(now, before, `The host does not let go:\n${host.log}`);
    }
}

/** Returns everything about a folder or a file and the entries below it. */
export function snapshot(path) {
    const status = lstatSync(path);
    const own = { path, mode: status.mode, time: status.mtimeMs, inode: status.ino, owner: status.uid };
    if (status.isSymbolicLink()) {
        return [{ ...own, target: readlinkSync(path) }];
    }
    if (status.isDirectory()) {
        return [own, ...readdirSync(path).sort().flatMap((name) => snapshot(join(path, name)))];
    }
    if (!status.isFile()) {
        return [own];
    }
    return [{ ...own, content: createHash("sha256").update(readFileSync(path)).digest("hex") }];
}

/** A well-behaved client: calls all the time, hears its results, and checks that none is missing. */
export class SteadyClient {
    /** `options`: see Host.connect. */
    static async start(host, options) {
        const steady = new SteadyClient();
        steady.host = host;
        steady.files = await (await host.connect(options)).createFiles();
        await steady.files.barrier();
        steady.calls = 0;
        return steady;
    }

    /** Calls `count` times, one after another, and hears as many results. */
    async call(count) {
        const first = this.calls + 1;
        for (let i = 0; i < count; ++i) {
            // Nothing is open, so the result tells the number of its request.
            await this.files.call("Close", ++this.calls);
        }
        for (let number = first; number < first + count; ++number) {
            const event = await this.files.nextEvent("AckEvent");
            assert.deepEqual([event.FileHandle, event.Result], [number, 3]);
        }
    }

    /** Calls until a promise is settled, and at least `least` times; returns what it gives. */
    async callDuring(promise, least = 500) {
        let settled = false;
        promise.then(() => (settled = true), () => (settled = true));
        const first = this.calls;
        while (!settled || this.calls - first < least) {
            await this.call(100);
        }
        return promise;
    }
}

/** Stops a client's process once so many bytes wait in the system between it and the host. */
export async function stopWhilePending(child, host, bytes) {
    await waitFor(`${bytes} bytes to wait`, async () => {
        child.kill("SIGSTOP");
        for (let look = 0; look < 20; ++look) {
            if (countPending(host) > bytes) {
                return true;
            }
            await new Promise((resume) => setTimeout(resume, 5));
        }
        child.kill("SIGCONT");
        return false;
    });
}

/** Ends a process and waits for it. */
export async function end(child) {
    if (child.exitCode === null && child.signalCode === null) {
        child.kill("SIGKILL");
        await within("a process to end", once(child, "close"));
    }
}

export function makeFifo(path) {
    assert.equal(spawnSync("mkfifo", [path]).status, 0);
    return path;
}

// The protocol, byte by byte

const uint32 = (value) => {
    const bytes = Buffer.alloc(4);
    bytes.writeUInt32LE(value);
    return bytes;
};
const double = (value) => {
    const bytes = Buffer.alloc(8);
    bytes.writeDoubleLE(value);
    return bytes;
};
const none = uint32(0xffffffff); // no string, byte string or array
const string = (text) => Buffer.concat([uint32(Buffer.byteLength(text)), Buffer.from(text)]);
const encodingId = (number) => Buffer.from([1, 0, number & 0xff, number >> 8]);
const emptyNodeId = Buffer.from([0, 0]);
const emptyObject = Buffer.from([0, 0, 0]);
const secondsFrom1601To1970 = 11_644_473_600n;

function makeRequestHeader(token = emptyNodeId) {
    const now = Buffer.alloc(8);
    now.writeBigInt64LE((BigInt(Date.now()) + secondsFrom1601To1970 * 1_000n) * 10_000n);
    return Buffer.concat([token, now, uint32(1), uint32(0), none, uint32(0), emptyObject]);
}
const responseHeaderSize = 8 + 4 + 4 + 1 + 4 + 3;

/** Returns a message or a chunk, with its size in front, or a wrong `size`. */
export function message(type, content, size) {
    return Buffer.concat([Buffer.from(type), uint32(size ?? content.length + 8), content]);
}

export function hello({ version = 0, receive = 65_535, send = 65_535, size = 0, chunks = 0, url = "opc.tcp://localhost" } = {}) {
    return message("HELF", Buffer.concat([version, receive, send, size, chunks].map(uint32).concat(string(url))));
}

/** Identity tokens. */
export const anonymous = emptyObject;
export function named({ nonce, certificate }, user, password) {
    const secret = Buffer.concat([uint32(Buffer.byteLength(password) + nonce.length), Buffer.from(password), nonce]);
    const key = { key: new X509Certificate(certificate).publicKey, padding: constants.RSA_PKCS1_OAEP_PADDING, oaepHash: "sha1" };
    const encrypted = publicEncrypt(key, secret);
    const content = Buffer.concat([
        string("username-none#Basic256Sha256"), string(user), uint32(encrypted.length), encrypted,
        string("http://www.w3.org/2001/04/xmlenc#rsa-oaep"),
    ]);
    return Buffer.concat([encodingId(324), Buffer.from([1]), uint32(content.length), content]);
}

/** A connection on which the test writes every byte. */
export class RawClient {
    static async connect(host, localAddress) {
        const client = new RawClient();
        client.received = Buffer.alloc(0);
        client.closed = false;
        client.socket = connect({ port: host.port, host: "127.0.0.1", localAddress });
        client.socket.on("data", (bytes) => (client.received = Buffer.concat([client.received, bytes])));
        client.socket.on("error", () => {}); // is followed by a close
        client.socket.on("close", () => (client.closed = true));
        await within("a connection", once(client.socket, "connect"));
        return client;
    }

    send(bytes) {
        this.socket.write(bytes);
    }

    /** Takes the next message that was received; returns its type and all of its bytes. */
    async next() {
        const isThere = () => {
            const isWhole = this.received.length >= 8 && this.received.length >= this.received.readUInt32LE(4);
            assert.ok(isWhole || !this.closed, "the host has closed the connection");
            return isWhole;
        };
        await waitFor("a message", isThere);
        const bytes = this.received.subarray(0, this.received.readUInt32LE(4));
        this.received = this.received.subarray(bytes.length);
        return { type: bytes.toString("latin1", 0, 3), bytes };
    }

    async greet() {
        this.send(hello());
        assert.equal((await this.next()).type, "ACK");
    }

    /** Opens a connection with a channel, from an address of this machine. */
    static async open(host, localAddress) {
        const client = await RawClient.connect(host, localAddress);
        await client.greet();
        await client.openChannel();
        return client;
    }

    /** Opens a channel that is not encrypted. */
    async openChannel() {
        const policy = string("http://opcfoundation.org/UA/SecurityPolicy#None");
        const request = [encodingId(446), makeRequestHeader(), uint32(0), uint32(0), uint32(1), none, uint32(600_000)];
        this.send(message("OPNF", Buffer.concat([uint32(0), policy, none, none, uint32(1), uint32(1), ...request])));
        const { type, bytes } = await this.next();
        assert.equal(type, "OPN");
        this.channel = bytes.subarray(8, 12);
        // The token follows the policy, two empty certificates, two numbers, the response's type and
        // header, the protocol's version and the channel.
        const token = 12 + policy.length + 8 + 8 + 4 + responseHeaderSize + 4 + 4;
        this.token = bytes.subarray(token, token + 4);
        this.sequence = 1;
    }

    /** Sends a chunk in the channel: type "MSGF", "MSGC", "CLOF". */
    sendChunk(type, content) {
        const number = uint32(++this.sequence);
        this.send(message(type, Buffer.concat([this.channel, this.token, number, uint32(2), content])));
    }

    /** Asks for sessions, all at once; returns the outcome of each. None is active yet. */
    async createSessions(count, { name = "session", url = "opc.tcp://localhost" } = {}) {
        const application = [string("urn:a"), string("urn:b"), Buffer.from([0]), uint32(1), none, none, none];
        for (let i = 0; i < count; ++i) {
            this.sendChunk("MSGF", Buffer.concat([
                encodingId(461), makeRequestHeader(), ...application, none, string(url), string(name),
                none, none, double(3_600_000), uint32(0),
            ]));
        }
        const made = [];
        while (made.length < count) {
            const { type, bytes } = await this.next();
            assert.equal(type, "MSG");
            const status = bytes.readUInt32LE(24 + 4 + 12);
            if (status !== 0) {
                made.push({ status });
                continue;
            }
            // Identifier and token are Guids.
            const [id, size] = [24 + 4 + responseHeaderSize, 3 + 16];
            const nonce = id + 2 * size + 8;
            const certificate = nonce + 4 + bytes.readUInt32LE(nonce);
            const read = (at) => bytes.subarray(at + 4, at + 4 + Math.max(0, bytes.readInt32LE(at)));
            made.push({
                status, id: bytes.subarray(id, id + size),
                token: bytes.subarray(id + size, id + 2 * size), nonce: read(nonce), certificate: read(certificate),
            });
        }
        return made;
    }

    /** Asks for a session and does not activate it. */
    async createSession(options) {
        return (await this.createSessions(1, options))[0];
    }

    /** Activates a session with each of these identity tokens, all at once; returns the statuses. */
    async activateSessions(identities, { token }) {
        for (const identity of identities) {
            this.sendChunk("MSGF", Buffer.concat([
                encodingId(467), makeRequestHeader(token), none, none, none, none, identity, none, none,
            ]));
        }
        const statuses = [];
        while (statuses.length < identities.length) {
            statuses.push((await this.next()).bytes.readUInt32LE(24 + 4 + 12));
        }
        return statuses;
    }

    /** Activates a session that it has created, by default without a user; returns the status. */
    async activateSession(session, identity = anonymous) {
        return (await this.activateSessions([identity], session))[0];
    }

    closeChannel() {
        this.sendChunk("CLOF", Buffer.concat([encodingId(452), makeRequestHeader()]));
    }

    /** Waits until the host has closed the connection. */
    async isClosed() {
        await waitFor("the host to close a connection", () => this.closed);
    }

    async end() {
        this.socket.destroy();
        await this.isClosed();
    }

    /** Writes until the host closes, as fast as it reads; returns the number of bytes. */
    async flood(makeBytes) {
        let sent = 0;
        const limit = Date.now() + longestWait;
        while (!this.closed) {
            assert.ok(Date.now() < limit, `The host takes all, ${sent} bytes so far`);
            const bytes = makeBytes();
            sent += bytes.length;
            if (!this.socket.write(bytes)) {
                await Promise.race([once(this.socket, "drain"), once(this.socket, "close")]).catch(() => {});
            }
        }
        return sent;
    }
}
