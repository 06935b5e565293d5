// The memory of a host: it is bounded, and given back.

import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { describe, it } from "node:test";
import { end, makeFifo, memory, takesMoreMemory } from "./adversary.mjs";
import { startHost, waitFor } from "./harness.mjs";

describe("A host that had much to do", { skip: takesMoreMemory }, () => {
    it("gives its memory back when it falls idle", async (test) => {
        const host = await startHost();
        const readers = [];
        try {
            const users = await Promise.all(Array.from({ length: 4 }, async () => (await host.connect()).createFiles()));
            await Promise.all(users.map((files) => files.barrier()));
            const before = memory(host).now;
            const block = Buffer.alloc(15_000_000);
            await Promise.all(users.map(async (files, i) => {
                const fifo = makeFifo(host.path(`fifo${i}`)); // what is sent stays in memory until it is read
                const handle = await files.call("OpenWrite", fifo, Buffer.alloc(0));
                const sent = [block, block].map((content) => files.call("Write", handle, content));
                readers.push(spawn("sh", ["-c", `exec cat < "${fifo}"`], { stdio: ["ignore", "ignore", "inherit"] }));
                await Promise.all(sent);
                await files.call("Close", handle);
                await files.barrier();
            }));
            test.diagnostic(`${before} MB before, at most ${memory(host).most} MB, then ${memory(host).now} MB`);
            assert.ok(memory(host).most > before + 100, "there was no peak");
            await waitFor("the memory to be given back", () => memory(host).now < before + 24);
            test.diagnostic(`${memory(host).now} MB in the end`);
            await host.stop();
        } finally {
            host.process.kill("SIGKILL");
            await Promise.all(readers.map(end));
            await Promise.allSettled(host.clients.map((client) => client.close()));
        }
    });
});
