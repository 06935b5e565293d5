// Clients that never log in: none of them ends the host, fills it up or keeps others out.

import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { describe, it } from "node:test";
import { RawClient } from "./adversary.mjs";
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

/** How often the thread that serves connections has waited for something. */
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
            // It looks at its memory twenty times a second meanwhile, with nobody connected.
            const before = countWaits(host);
            await waitFor("the host to go on", () => countWaits(host) >= before + 10);
            assert.match((await host.connect()).session.sessionId.toString(), /=/);
        }));
});
