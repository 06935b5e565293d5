// Clients that stop, flood, lie, block and take all that they can get. Meanwhile a well-behaved one
// goes on calling; afterwards the host has as many resources as before, and ends in good order.

import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { once } from "node:events";
import { closeSync, constants, mkdirSync, openSync, readdirSync, readFileSync, statSync, writeFileSync, writeSync } from "node:fs";
import { fileURLToPath } from "node:url";
import { describe, it } from "node:test";
import {
    becomesWhole, countPending, end, hello, holdings, keepsFreedMemory, makeFifo, memory, message, RawClient,
    startLimitedHost, SteadyClient, stopWhilePending,
} from "./adversary.mjs";
import { hostUri, longestWait, noTime, opcua, waitFor, within } from "./harness.mjs";

const megabyte = 1_000_000;
const read = 1; // open modes
const write = 0;
const notDrained = 5; // exit status

/**
 * Starts a host with a steady client, does something to it, and checks that the host is whole
 * afterwards and ends with the status.
 */
async function survives({ flags = [], limits = [], status = 0, isWhole = true }, attempt) {
    const host = await startLimitedHost(limits, { flags: ["--grace", "200ms", ...flags] });
    try {
        const steady = await SteadyClient.start(host);
        const before = holdings(host);
        await attempt(host, steady);
        await steady.call(100);
        if (isWhole) {
            await becomesWhole(host, before);
        }
        await Promise.all(host.clients.map((client) => client.close()));
        host.process.kill("SIGTERM");
        assert.deepEqual(await within("the host to end", host.exited), { status, signal: null }, host.log);
        assert.equal(host.log.includes("Stopped with unfinished work"), status === notDrained);
    } finally {
        host.process.kill("SIGKILL");
        // A client that is left open looks for its host on and on, and keeps this process from ending.
        await Promise.allSettled(host.clients.map((client) => client.close()));
    }
}

const logged = (host, text) => waitFor(`'${text}' in the log`, () => host.log.includes(text));

/** Returns the number of a host's threads that wait in the system to open or read a file. */
function countWaiting(host) {
    const systemCalls = process.arch === "arm64" ? { read: 63, openat: 56 } : { read: 0, open: 2, openat: 257 };
    return readdirSync(`/proc/${host.pid}/task`).filter((task) => {
        try {
            const [number] = readFileSync(`/proc/${host.pid}/task/${task}/syscall`, "utf8").split(" ");
            return Object.values(systemCalls).map(String).includes(number);
        } catch {
            return false; // has ended meanwhile
        }
    }).length;
}

function fill(folder, count, length) {
    mkdirSync(folder);
    for (let i = 0; i < count; ++i) {
        writeFileSync(`${folder}/${String(i).padStart(length, "n")}`, "");
    }
}

describe("A host survives", () => {
    it("a client that is stopped while megabytes wait for it", async () =>
        survives({}, async (host, steady) => {
            const [reads, listings] = [1_000, 10];
            writeFileSync(host.path("file"), Buffer.alloc(100_000));
            fill(host.path("folder"), 5_000, 100);

            const script = fileURLToPath(new URL("reading-client.mjs", import.meta.url));
            const child = spawn(process.execPath, [script, host.url, host.root, host.path("file"), reads, listings]);
            try {
                let output = "";
                child.stdout.on("data", (text) => (output += text));
                child.stderr.on("data", (text) => (output += text));
                await waitFor("the client to read", () => output.includes("reading"));
                child.kill("SIGSTOP");

                const files = await (await host.connect()).files();
                for (let i = 0; i < listings; ++i) {
                    await files.call("List", host.path("folder"), false);
                    await files.nextEvent("ListResultEvent");
                }
                await waitFor("megabytes to wait", () => countPending(host) > 2 * megabyte);
                await files.client.close();
                await steady.call(500);

                child.kill("SIGCONT");
                const ended = within("the client to end", once(child, "close"), 2 * longestWait);
                assert.deepEqual(await steady.callDuring(ended), [0, null], output);
                assert.ok(output.includes(`read ${reads * 61_440} bytes, heard ${listings} listings`), output);
            } finally {
                await end(child);
            }
        }));

    it("a stopped client that never goes on", async () =>
        survives({ flags: ["--max-queued-output", "6MB", "--pause-at-queued-output", "1MB"] }, async (host, steady) => {
            writeFileSync(host.path("file"), Buffer.alloc(100_000));
            const script = fileURLToPath(new URL("reading-client.mjs", import.meta.url));
            const child = spawn(process.execPath, [script, host.url, host.root, host.path("file"), 1e9, 0], { stdio: ["ignore", "pipe", "ignore"] });
            try {
                await within("the client to read", once(child.stdout, "data"));
                await stopWhilePending(child, host, megabyte);
                await steady.call(500);
            } finally {
                await end(child);
            }
        }));

    it("50 clients that wait for pipes, half of them to open one and half to read from it", async () =>
        survives({ flags: ["--drain", "500ms"] }, async (host, steady) => {
            const count = 50;
            const held = [];
            const fifos = Array.from({ length: count }, (_, i) => makeFifo(host.path(`fifo${i}`)));
            const hold = (fifo) => held.push(openSync(fifo, constants.O_RDWR | constants.O_NONBLOCK));
            const waitAt = async (fifo, i) => {
                const client = await host.connect();
                const files = await client.createFiles();
                const isReading = i % 2 === 1;
                if (isReading) {
                    hold(fifo);
                }
                const handle = await files.call("Open", fifo, read);
                if (isReading) {
                    await files.barrier();
                    files.call("Read", handle, 100).catch(() => {}); // is not answered
                }
                return client;
            };
            const waiting = Promise.all(fifos.map(waitAt));
            await steady.callDuring(waiting);
            await waitFor("all to wait", () => countWaiting(host) >= count);
            await steady.call(500);
            await steady.callDuring(Promise.all((await waiting).map((client) => client.close())));
            await logged(host, "ended, but its work has not drained");
            assert.ok(countWaiting(host) >= count);
            await steady.call(500);
            held.splice(0).forEach(closeSync); // who reads comes to the end
            // The one that opens goes on. The others' pipes stay closed: a reader that has not run yet would wait again.
            fifos.filter((_, i) => i % 2 === 0).forEach(hold);
            await waitFor("all to go on", () => countWaiting(host) === 0);
            held.forEach(closeSync);
        }));

    it("3 000 calls behind one that waits, and answers them in their order", async () =>
        survives({}, async (host, steady) => {
            const fifo = makeFifo(host.path("fifo"));
            const writer = openSync(fifo, constants.O_RDWR | constants.O_NONBLOCK);
            const client = await host.connect();
            const files = await client.createFiles();
            const handle = await files.call("Open", fifo, read);
            await files.barrier();
            const waiting = files.call("Read", handle, 4);
            const answered = [];
            const calls = Array.from({ length: 3_000 }, async (_, i) => {
                await files.tryCall("GetPosition", handle);
                answered.push(i);
            });
            await waitFor("the read to wait", () => countWaiting(host) === 1);
            await steady.call(500);
            assert.equal(answered.length, 0);
            writeSync(writer, "data");
            assert.equal(String(await waiting), "data");
            await within("the calls", Promise.all(calls));
            assert.deepEqual(answered, calls.map((_, i) => i));
            await files.call("Close", handle);
            await files.nextEvent("AckEvent");
            closeSync(writer);
            await client.close();
        }));

    it("a client that leaves while it is not read, since too many of its calls wait", async () =>
        survives({ flags: ["--drain", "500ms"] }, async (host, steady) => {
            const fifo = makeFifo(host.path("fifo"));
            const writer = openSync(fifo, constants.O_RDWR | constants.O_NONBLOCK);
            const program = fileURLToPath(new URL("waiting-client.mjs", import.meta.url));
            const client = spawn(process.execPath, [program, host.url, fifo], { stdio: ["ignore", "pipe", "inherit"] });
            await within("the client to wait", once(client.stdout, "data"));
            await waitFor("the read to wait", () => countWaiting(host) === 1);
            await steady.call(500);
            client.kill("SIGKILL");
            await logged(host, "ended, but its work has not drained");
            closeSync(writer); // who reads comes to the end
        }));

    it("a pipe that nobody ever opens, and says so when it ends", async () =>
        survives({ flags: ["--drain", "500ms"], status: notDrained, isWhole: false }, async (host, steady) => {
            const fifo = makeFifo(host.path("fifo"));
            const files = await (await host.connect()).createFiles();
            await files.call("Open", fifo, read);
            await waitFor("it to wait", () => countWaiting(host) > 0);
            await steady.call(500);
        }));

    it("a pipe at a shared file system that nobody ever opens, and says so when it ends", async () =>
        survives({ flags: ["--drain", "500ms"], status: notDrained, isWhole: false }, async (host, steady) => {
            const files = await (await host.connect()).files();
            await files.call("Open", makeFifo(host.path("fifo")), read);
            await waitFor("it to wait", () => countWaiting(host) > 0);
            await steady.call(500);
        }));

    it("a pipe whose reader has gone", async () =>
        survives({}, async (host, steady) => {
            const fifo = makeFifo(host.path("fifo"));
            const reader = openSync(fifo, constants.O_RDONLY | constants.O_NONBLOCK);
            const files = await (await host.connect()).createFiles();
            const handle = await files.call("Open", fifo, write);
            await files.barrier();
            closeSync(reader);
            await files.call("Write", handle, Buffer.alloc(100_000));
            const { FileHandle, Result } = await files.nextEvent("AckEvent");
            assert.deepEqual([FileHandle, Result], [handle, 2]);
            await files.client.close();
            await steady.call(500);
        }));

    it("a file that reaches the limit of files' sizes", async () =>
        survives({ limits: ["fsize=1000000:1000000"] }, async (host, steady) => {
            const files = await (await host.connect()).createFiles();
            for (const method of ["UploadFile", "OpenWrite"]) {
                const more = method === "UploadFile" ? [noTime, 0] : [];
                const handle = await files.call(method, host.path(method), Buffer.alloc(2 * megabyte), ...more);
                const { FileHandle, Result } = await files.nextEvent("AckEvent");
                // An upload's result says only whether the file could be opened.
                assert.deepEqual([FileHandle, Result], [handle, method === "UploadFile" ? 0 : 2], method);
                assert.ok(statSync(host.path(method)).size <= megabyte);
            }
            await files.client.close();
            await steady.call(500);
        }));
});

describe("A host survives what is no OPC UA", () => {
    const flags = ["--max-message", "2MB", "--max-chunks", "50"];
    const limit = 20 * megabyte; // what a host and the system may take of one that floods

    const attackRaw = (attempt) => survives({ flags }, async (host, steady) => {
        await steady.callDuring(attempt(host, steady), 1_000);
        assert.ok(memory(host).most < 150 || keepsFreedMemory, `${memory(host).most} MB`);
    });

    it("garbage", () => attackRaw(async (host) => {
        const garbage = Buffer.from(Array.from({ length: 100_000 }, (_, i) => (i * 7919 + (i >> 3) * 104_729) & 0xff));
        const openRequest = message("OPNF", Buffer.alloc(100));
        const openings = [
            garbage, Buffer.from("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n"), Buffer.alloc(100_000),
            message("HELF", Buffer.alloc(0)), message("HELF", Buffer.alloc(10)), message("HELC", Buffer.alloc(100)),
            message("HELF", Buffer.alloc(24), 0), message("HELF", Buffer.alloc(24), 7), message("HELF", Buffer.alloc(24), 0xffffffff),
            message("XXXF", Buffer.alloc(24)), message("ACKF", Buffer.alloc(24)), openRequest,
            message("MSGF", Buffer.alloc(100)), message("CLOF", Buffer.alloc(100)), hello({ url: "x".repeat(100_000) }),
            hello({ receive: 0, send: 0 }), hello({ receive: 1, send: 1 }), Buffer.concat([hello(), hello()]),
            Buffer.concat([hello(), message("MSGF", Buffer.alloc(100))]), Buffer.concat([hello(), openRequest]),
        ];
        for (const [i, bytes] of openings.entries()) {
            const client = await RawClient.connect(host);
            client.send(bytes);
            await client.isClosed().catch(() => assert.fail(`opening ${i} is not refused`));
        }
    }));

    it("absurd sizes", () => attackRaw(async (host) => {
        const most = 0xffffffff;
        for (const sizes of [{ receive: most, send: most }, { size: most, chunks: most }, { version: most }, { size: 1, chunks: 1 }]) {
            const client = await RawClient.connect(host);
            client.send(hello(sizes));
            await waitFor("an answer", () => client.closed || client.received.length > 0);
            await client.end();
        }
        // The places of a list, a string or an object that claims to be longer than the message.
        for (let at = 0; at < 120; at += 4) {
            const client = await RawClient.connect(host);
            await client.greet();
            await client.openChannel();
            const content = Buffer.alloc(120);
            content.set([1, 0, 461 & 0xff, 461 >> 8]);
            content.writeUInt32LE(0x7fffffff, at);
            client.sendChunk("MSGF", content);
            await waitFor("an answer", () => client.closed || client.received.length > 0);
            await client.end();
        }
    }));

    it("half of a message", () => attackRaw(async (host, steady) => {
        const client = await RawClient.connect(host);
        client.send(hello().subarray(0, 20));
        const other = await RawClient.connect(host);
        await other.greet();
        await other.openChannel();
        other.send(message("MSGF", Buffer.alloc(100), 60_000));
        await steady.host.connect(); // others still can
        await client.end();
        await other.end();
        await Promise.all(host.clients.splice(1).map((each) => each.close()));
    }));

    it("chunks out of order, and channels that are not theirs", () => attackRaw(async (host) => {
        const spoil = [
            (client) => (client.sequence -= 2), (client) => (client.channel = Buffer.from([0xff, 0xff, 0, 0])),
            (client) => (client.token = Buffer.from([0xff, 0xff, 0, 0])), (client) => (client.channel = Buffer.alloc(4)),
        ];
        for (const [i, change] of spoil.entries()) {
            const client = await RawClient.connect(host);
            await client.greet();
            await client.openChannel();
            change(client);
            client.sendChunk("MSGF", Buffer.alloc(100));
            await client.isClosed().catch(() => assert.fail(`channel ${i} is not closed`));
        }
    }));

    for (const [name, size] of [["a message over the limit", 60_000], ["chunks without end", 1]]) {
        it(name, () => attackRaw(async (host) => {
            const client = await RawClient.connect(host);
            await client.greet();
            await client.openChannel();
            const makeBytes = () => {
                const header = Buffer.alloc(16);
                header.set(client.channel);
                header.set(client.token, 4);
                header.writeUInt32LE(++client.sequence, 8);
                header.writeUInt32LE(2, 12);
                return message("MSGC", Buffer.concat([header, Buffer.alloc(size)]));
            };
            const sent = await client.flood(makeBytes);
            assert.ok(sent < limit, `${sent} bytes`);
        }));
    }

    it("connections that say nothing, more than there may be", () => attackRaw(async (host) => {
        const idle = await Promise.all(Array.from({ length: 1_500 }, () => RawClient.connect(host)));
        const client = await host.connect(); // is not kept out by them
        await client.createFileSystem();
        await client.close();
        await Promise.all(idle.map((each) => each.end()));
    }));
});

describe("A host keeps its bounds", () => {
    it("of memory, with one who sends faster than the disk takes", { skip: keepsFreedMemory }, async (test) =>
        survives({ flags: ["--max-memory", "120MB"] }, async (host, steady) => {
            const [count, underWay, block] = [400, 40, Buffer.alloc(megabyte, "b")];
            const fifo = makeFifo(host.path("fifo")); // a disk that does not take anything for now
            const files = await (await host.connect()).createFiles();
            const handle = await files.call("OpenWrite", fifo, Buffer.alloc(0));
            let sent = 0;
            let answered = 0;
            const send = async () => {
                while (sent < count) {
                    ++sent;
                    await files.call("Write", handle, block);
                    ++answered;
                }
            };
            const sending = Promise.all(Array.from({ length: underWay }, send));
            await steady.callDuring(logged(host, "memory is short"));
            await steady.call(500);
            assert.ok(answered < count, "all was taken");
            const { most } = memory(host);
            test.diagnostic(`${answered} MB taken of ${count}, at most ${most} MB of memory`);
            assert.ok(most < 300, `${most} MB`);

            const reader = spawn("sh", ["-c", `exec wc -c < "${fifo}"`]);
            try {
                let counted = "";
                reader.stdout.on("data", (text) => (counted += text));
                const isRead = once(reader, "close");
                await steady.callDuring(within("the rest", sending, 2 * longestWait));
                await files.call("WriteClose", handle, Buffer.from("end"), noTime, 0);
                assert.equal((await files.nextEvent("AckEvent")).Result, 0);
                await within("the reader", isRead);
                assert.equal(Number(counted), count * megabyte + 3);
            } finally {
                await end(reader);
            }
            test.diagnostic(`at most ${memory(host).most} MB of memory, ${memory(host).now} MB afterwards`);
            assert.ok(memory(host).most < 300, `${memory(host).most} MB`);
            await files.client.close();
        }));

    it("of descriptors, and keeps some for accepting", async () =>
        survives({ limits: ["nofile=200:200"] }, async (host, steady) => {
            writeFileSync(host.path("file"), "text");
            const greedy = await (await host.connect()).createFiles();
            const takeAll = async () => {
                for (let opened = 0; opened < 300; ++opened) {
                    await greedy.call("Open", host.path("file"), read);
                    await greedy.call("Exists", host.path("file"));
                    if ((await greedy.nextEvent()).type === "AckEvent") {
                        await greedy.nextEvent("ExistsResultEvent");
                        return opened;
                    }
                }
                return undefined;
            };
            const opened = await steady.callDuring(takeAll());
            assert.ok(opened > 50 && opened < 200, `${opened} files`);

            const others = await steady.callDuring(Promise.all(Array.from({ length: 40 }, async () => (await host.connect()).createFiles())));
            for (const files of others) {
                await files.call("Exists", host.path("file"));
                assert.equal((await files.nextEvent("ExistsResultEvent")).Exist, true);
                await files.call("Open", host.path("file"), read);
                assert.equal((await files.nextEvent("AckEvent")).Result, 1); // there are no files left
            }
            await greedy.client.close();
            await waitFor("its files to be closed", () => host.openFiles().length === 0);
            const handle = await others[0].call("Open", host.path("file"), read);
            await others[0].barrier();
            assert.equal(String(await others[0].call("Read", handle, 10)), "text");
            await Promise.all(others.map((files) => files.client.close()));
        }));

    it("of descriptors, when connections take them all", async () =>
        survives({ limits: ["nofile=60:60"] }, async (host, steady) => {
            const idle = await steady.callDuring(Promise.all(Array.from({ length: 300 }, () => RawClient.connect(host))));
            await logged(host, "cannot accept connections");
            await steady.call(500);
            await Promise.all(idle.map((each) => each.socket.destroy()));
            const files = await (await host.connect()).createFiles();
            await files.upload(host.path("file"), "text");
            await files.client.close();
        }));

    it("with a folder 1 000 levels deep", async () =>
        survives({}, async (host, steady) => {
            const depth = 1_000;
            mkdirSync(host.path("d", ...Array.from({ length: depth - 1 }, () => "d")), { recursive: true });
            const files = await (await host.connect()).createFiles();
            await files.call("List", host.root, true);
            const { Content } = await steady.callDuring(files.nextEvent("ListResultEvent"));
            assert.equal(Content.length, depth);
            await files.call("Delete", [host.path("d")]);
            await steady.callDuring(files.nextEvent("DeleteResultEvent"));
            assert.deepEqual(readdirSync(host.root), []);
            await files.client.close();
        }));

    it("of events, with one who never asks for them", async (test) =>
        survives({ flags: ["--max-queued-events", "20MB"] }, async (host, steady) => {
            fill(host.path("folder"), 10_000, 200);
            const other = await (await host.connect()).files(); // hears the same, and keeps up
            const client = await host.connect();
            const session = String(client.session.sessionId);
            const { subscriptionId } = await client.session.createSubscription({
                requestedPublishingInterval: 10, requestedLifetimeCount: 100_000, requestedMaxKeepAliveCount: 10,
                maxNotificationsPerPublish: 0, publishingEnabled: true, priority: 0,
            });
            const { clauses } = client.selectClauses();
            const nodeId = client.node(hostUri, "FileSystem");
            const monitored = await client.session.createMonitoredItems({
                subscriptionId, timestampsToReturn: opcua.TimestampsToReturn.Neither,
                itemsToCreate: [{
                    itemToMonitor: { nodeId, attributeId: opcua.AttributeIds.EventNotifier },
                    monitoringMode: opcua.MonitoringMode.Reporting,
                    requestedParameters: {
                        clientHandle: 1, samplingInterval: 0, queueSize: 200_000, discardOldest: true,
                        filter: new opcua.EventFilter({ selectClauses: clauses }),
                    },
                }],
            });
            assert.equal(monitored.results[0].statusCode.name, "Good");
            const raise = async () => {
                for (let raised = 1; raised <= 50; ++raised) {
                    await other.call("List", host.path("folder"), false);
                    await other.nextEvent("ListResultEvent");
                    if (host.log.includes("bytes of events wait for it")) {
                        return raised;
                    }
                }
                return undefined;
            };
            const raised = await steady.callDuring(raise());
            assert.ok(raised > 5 && raised <= 20, `closed after ${raised} listings`);
            test.diagnostic(`closed after ${raised} listings, at most ${memory(host).most} MB of memory`);
            assert.match(host.log, /Session of anonymous from 127\.0\.0\.1 is closed: more than 20000000 bytes of events wait for it/);
            // The answer to its next call makes the client log in anew by itself.
            await client.read("i=2255");
            assert.notEqual(String(client.session.sessionId), session);
            // A client that keeps up still hears.
            await other.call("Exists", host.root);
            await other.nextEvent("ExistsResultEvent");
            await Promise.all(host.clients.slice(1).map((each) => each.close()));
        }));

    it("of sessions", async () =>
        survives({ flags: ["--max-sessions", "5"] }, async (host, steady) => {
            const clients = [];
            for (let i = 0; i < 4; ++i) {
                clients.push(await host.connect());
            }
            await assert.rejects(host.connect(), /BadTooManySessions/);
            await Promise.all(host.clients.filter(({ session }) => !session).map((client) => client.close()));
            await steady.call(500);
            await clients[0].close();
            await waitFor("room for another", () => host.connect().then((client) => client, () => undefined));
            await Promise.all(host.clients.slice(1).map((client) => client.close()));
        }));

    it("of sessions, also with ones that nobody activates", async () =>
        survives({ flags: ["--max-sessions", "5"] }, async (host, steady) => {
            const claim = async () => {
                for (let i = 0; i < 30; ++i) {
                    const client = await RawClient.connect(host);
                    await client.greet();
                    await client.openChannel();
                    await client.createSession();
                    await client.end();
                }
            };
            await steady.callDuring(claim());
            const client = await waitFor("room for another", () => host.connect().then((each) => each, () => undefined));
            await client.createFileSystem();
            await Promise.all(host.clients.slice(1).map((each) => each.close()));
        }));

    it("of sessions, those included that have ended and are still at work", async () =>
        survives({ flags: ["--max-sessions", "3"] }, async (host, steady) => {
            const fifos = [makeFifo(host.path("one")), makeFifo(host.path("two"))];
            for (const fifo of fifos) {
                const files = await (await host.connect()).createFiles();
                await files.call("Open", fifo, read);
                await files.client.close();
            }
            await waitFor("both to wait", () => countWaiting(host) >= 2);
            await assert.rejects(host.connect(), /BadTooManySessions/);
            await steady.call(500);
            const held = fifos.map((fifo) => openSync(fifo, constants.O_RDWR | constants.O_NONBLOCK));
            await waitFor("room for another", () => host.connect().then((client) => client, () => undefined));
            held.forEach(closeSync);
            await Promise.all(host.clients.slice(1).map((client) => client.close()));
        }));

    it("of file systems of a session's own", async () =>
        survives({}, async (host, steady) => {
            const client = await host.connect();
            for (let i = 0; i < 4; ++i) {
                await client.createFileSystem();
            }
            for (let i = 0; i < 3; ++i) {
                await assert.rejects(client.createFileSystem(), /BadResourceUnavailable/);
            }
            await steady.call(500);
            await (await host.connect()).createFileSystem(); // of somebody else
            await Promise.all(host.clients.slice(1).map((each) => each.close()));
        }));

    it("of its log: what a client says is never a line of its own", async () =>
        survives({ flags: ["--log-level", "trace"] }, async (host) => {
            const forged = 'x\n2001-01-01T00:00:00.0000000Z Error Host 0 "forged"\r\x1b[2Jx\n';
            const files = await (await host.connect()).createFiles();
            const path = host.path(forged);
            await files.upload(path, "text", noTime, 4);
            for (const [name, ...inputs] of [
                ["Open", path, 7], ["OpenWrite", path, Buffer.alloc(1)], ["List", path, true], ["Exists", path], ["Delete", [path]],
                ["CreateDirectory", path], ["GetDateTime", path], ["SetDateTime", path, new Date()], ["UploadFile", path, Buffer.alloc(1), noTime, 4],
            ]) {
                await files.call(name, ...inputs);
            }
            await files.barrier();
            await assert.rejects(host.connect({ user: forged, password: forged }));
            const raw = await RawClient.connect(host);
            raw.send(hello({ url: forged }));
            await raw.next();
            await raw.openChannel();
            await raw.createSession({ name: forged, url: forged });
            await raw.end();
            await Promise.all(host.clients.slice(1).map((client) => client.close()));
            assert.match(host.log, /forged/); // it is written at all
            const lines = host.log.split("\n").slice(0, -1);
            const isLine = /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{7}Z \w+ \w+ \d+ "/;
            assert.deepEqual(lines.filter((line) => !isLine.test(line) || line.startsWith("2001-")), []);
            assert.doesNotMatch(host.log, /[\x00-\x09\x0b-\x1f\x7f]/);
        }));
});
