// Clients that come and go, in good order and without a word, leave nothing behind. The short form
// takes 300 of them; TALVENSOR_LONG=1 takes 10 000.

import assert from "node:assert/strict";
import { writeFileSync } from "node:fs";
import { describe, it } from "node:test";
import { becomesWhole, holdings, keepsFreedMemory, memory, RawClient } from "./adversary.mjs";
import { startHost, waitFor } from "./harness.mjs";

const isLong = process.env.TALVENSOR_LONG === "1";
const count = isLong ? 10_000 : 300;
const warmUp = isLong ? 1_000 : 100;
const mostGrowth = keepsFreedMemory ? Infinity : 10; // megabytes

const visits = {
    /** Greets, and goes. */
    async hello(host) {
        const client = await RawClient.connect(host);
        await client.greet();
        await client.end();
    },
    /** Opens a channel, and closes it. */
    async channel(host) {
        const client = await RawClient.connect(host);
        await client.greet();
        await client.openChannel();
        client.closeChannel();
        await client.isClosed();
    },
    /** Opens a channel, and goes without a word. */
    async dropped(host) {
        const client = await RawClient.connect(host);
        await client.greet();
        await client.openChannel();
        await client.end();
    },
    /** Creates a session that it never activates. */
    async unclaimed(host) {
        const client = await RawClient.connect(host);
        await client.greet();
        await client.openChannel();
        await client.createSession();
        await client.end();
    },
    /** A whole session with a file system of its own, and a file left open. */
    async session(host) {
        const client = await host.connect();
        const files = await client.createFiles();
        await files.call("Open", host.path("file"), 1);
        await files.barrier();
        await client.close();
        host.clients.splice(host.clients.indexOf(client), 1);
    },
};

/** Returns the holdings of a host once all of it runs, which a client that was heard shows. */
async function holdingsAtRest(host) {
    const { descriptors } = holdings(host);
    await visits.hello(host);
    return waitFor("the first client to be gone", () => {
        const now = holdings(host);
        return now.descriptors === descriptors ? now : undefined;
    });
}

describe("A host", () => {
    it(`is the same after ${count} clients`, { timeout: 3_600_000 }, async (test) => {
        const host = await startHost({ flags: ["--max-sessions", "10000", "--grace", "100ms"] });
        try {
            writeFileSync(host.path("file"), "text");
            const before = await holdingsAtRest(host);
            const kinds = Object.values(visits);
            const visit = async (from, to) => {
                for (let i = from; i < to; ++i) {
                    await kinds[i % kinds.length](host);
                }
                await becomesWhole(host, before);
            };
            await visit(0, warmUp);
            const warm = memory(host).now;
            await visit(warmUp, count);
            const end = memory(host).now;
            test.diagnostic(`${warm} MB after ${warmUp} clients, ${end} MB after ${count}`);
            assert.ok(end - warm < mostGrowth, `${warm} MB after ${warmUp} clients, ${end} MB after ${count}`);
            await host.stop();
        } finally {
            host.process.kill("SIGKILL"); // or this process would wait for it
        }
    });
});
