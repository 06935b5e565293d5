// Stopping a host while something in it does not end.

import assert from "node:assert/strict";
import { it } from "node:test";
import { makeFifo } from "./adversary.mjs";
import { hostUri, startHost, within } from "./harness.mjs";

it("A shared node that is stuck keeps no other from being stopped in time", async () => {
    const host = await startHost({ flags: ["--node", "Stuck", "--node", "Other", "--drain", "2s"] });
    const client = await host.connect();
    const [stuck, other] = [await client.files(client.node(hostUri, "Stuck")), await client.files(client.node(hostUri, "Other"))];
    await stuck.call("Open", makeFifo(host.path("fifo")), 1); // waits in the system for another end
    await other.barrier();
    await client.close();
    host.process.kill("SIGTERM");
    assert.deepEqual(await within("the host to end", host.exited), { status: 5, signal: null }, host.log);
    const late = host.log.match(/The shared node \S+ has not drained/g) ?? [];
    assert.equal(late.length, 1, host.log);
    assert.match(late[0], /Stuck/);
});
