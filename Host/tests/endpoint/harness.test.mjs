// The harness itself: the unhandled rejections that fail a test file.

import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { after, before, describe, it } from "node:test";
import { longestWait, startHost } from "./harness.mjs";

const harness = new URL("./harness.mjs", import.meta.url).href;

/** Runs a script with the harness in a process of its own; returns its exit status and output. */
function runScript(script) {
    const source = `import { startHost } from ${JSON.stringify(harness)};\n${script}`;
    const flags = ["--input-type=module", "--eval", source];
    const { status, stdout, stderr } = spawnSync(process.execPath, flags, {
        encoding: "utf8", timeout: longestWait,
    });
    return { status, output: `${stdout}${stderr}` };
}

describe("An unhandled rejection", () => {
    let host;
    before(async () => (host = await startHost()));
    after(() => host.stop());

    it("of a request that its client's end cancels fails nothing", () => {
        const { status, output } = runScript(`
            const host = await startHost();
            const client = await host.connect();
            const { session } = client;
            session.read({ nodeId: "i=2258" }); // still on its way
            const closing = client.close();
            session.read({ nodeId: "i=2258" });
            await closing;
            session.read({ nodeId: "i=2258" });
            await host.stop();`);
        assert.equal(status, 0, output);
    });

    it("of any other kind fails the process", () => {
        const { status, output } = runScript(`Promise.reject(new Error("not handled"));`);
        assert.equal(status, 1, output);
        assert.match(output, /not handled/);
    });

    it("of a refused request fails the process", () => {
        const { status, output } = runScript(`
            const host = await startHost();
            const client = await host.connect();
            client.session.call([]);
            await host.stop();`);
        assert.equal(status, 1, output);
    });
});
