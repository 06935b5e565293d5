// Clients that never log in: none ends the host, uses it up or keeps others out.

import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { describe, it } from "node:test";
import { becomesWhole, hello, holdings, memory, message, RawClient, SteadyClient, takesMoreMemory } from "./adversary.mjs";
import { startHost, waitFor } from "./harness.mjs";

/** Starts a host, does something to it, and checks that it ends in good order afterwards. */
async function withHost(flags, attempt) {
    const host = await startHost({ flags });
    try {
        await attempt(host);
        await host.stop();
    } finally {
        host.process.kill("SIGKILL");
        await Promise.allSettled(host.clients.map((client) => client.close()));
    }
}

const logged = (host, text) => waitFor(`'${text}' in the log`, () => host.log.includes(text));

/** Returns how often the thread that serves connections has waited for something. */
function countWaits(host) {
    const { exitCode, signalCode } = host.process;
    assert.deepEqual({ exitCode, signalCode }, { exitCode: null, signalCode: null }, "the host has ended");
    const status = readFileSync(`/proc/${host.pid}/status`, "utf8");
    return Number(/^voluntary_ctxt_switches:\s+(\d+)$/m.exec(status)?.[1] ?? 0);
}

describe("A host that is short of memory", () => {
    it("outlives its last client", () =>
        withHost(["--max-memory", "1MB"], async (host) => {
            await (await RawClient.connect(host)).end();
            await logged(host, "memory is short");
            assert.match(host.log, / Warning Network .*memory is short/);
            // It looks at its memory twenty times a second meanwhile, with nobody connected.
            const before = countWaits(host);
            await waitFor("the host to go on", () => countWaits(host) >= before + 10);
            assert.match((await host.connect()).session.sessionId.toString(), /=/);
        }));
});

describe("A host whose clients do not log in", () => {
    const connect = async (host) => {
        const client = await RawClient.connect(host);
        await client.greet();
        await client.openChannel();
        return client;
    };

    it("takes no large message from them", () =>
        withHost([], async (host) => {
            const steady = await SteadyClient.start(host);
            const before = holdings(host);
            const chunk = Buffer.alloc(60_000);
            const flood = async () => {
                const client = await connect(host);
                const header = Buffer.concat([client.channel, client.token, Buffer.alloc(8)]);
                return client.flood(() => {
                    header.writeUInt32LE(++client.sequence, 8);
                    header.writeUInt32LE(2, 12);
                    return message("MSGC", Buffer.concat([header, chunk]));
                });
            };
            const floods = Promise.all(Array.from({ length: 24 }, flood));
            await steady.callDuring(floods, 100);
            assert.ok(memory(host).most < 120 || takesMoreMemory, `${memory(host).most} MB`);
            await becomesWhole(host, before);
        }));

    it("tells them why it closes their connections", () =>
        withHost([], async (host) => {
            const client = await connect(host);
            client.sendChunk("MSGC", Buffer.alloc(40_000));
            client.send(message("MSGF", Buffer.alloc(0), 40_000)); // its first bytes
            const { type, bytes } = await client.next();
            assert.equal(type, "ERR");
            assert.equal(bytes.readUInt32LE(8), 0x80800000); // Bad_TcpMessageTooLarge
            await client.isClosed();
        }));

    it("keeps few of them, and lets others in meanwhile", () =>
        withHost([], async (host) => {
            const before = holdings(host);
            const many = 500;
            const idle = await Promise.all(Array.from({ length: many }, () => RawClient.connect(host)));
            await waitFor("most of them to be closed", () => idle.filter(({ closed }) => closed).length >= many - 64);
            await (await host.connect()).createFileSystem();
            assert.ok(holdings(host).descriptors < before.descriptors + 100);
            assert.ok(idle.some(({ closed }) => !closed));
            await Promise.all(idle.map((client) => client.end()));
        }));

    it("closes them after a while, and nobody else", () =>
        withHost(["--log-level", "detail"], async (host) => {
            const user = await host.connect();
            const left = await host.connect();
            await left.session.close();
            const silent = await RawClient.connect(host);
            const slow = await RawClient.connect(host);
            slow.send(hello().subarray(0, 20));
            const asking = await connect(host);
            const creating = await connect(host);
            await creating.createSession();
            await Promise.all([silent, slow].map((client) => client.isClosed()));
            assert.ok(!asking.closed && !creating.closed);
            await Promise.all([asking, creating].map((client) => client.isClosed()));
            const count = () => host.log.match(/no session is active/g)?.length;
            await waitFor("the one whose session has ended to be closed too", () => count() === 3);
            await user.createFileSystem();
        }));
});
