// A temporary file that its client forgets. It lives for a minute.

import assert from "node:assert/strict";
import { existsSync, readdirSync, readFileSync } from "node:fs";
import { join } from "node:path";
import { after, it } from "node:test";
import { fileObjectsFlags, fileObjectsUri, makeFolder, opcua, startHost, waitFor } from "./harness.mjs";

const { DataType, Variant } = opcua;

const audit = join(makeFolder("audit"), "audit.log");
const host = await startHost({ flags: [...fileObjectsFlags, "--audit-log", audit, "--audit-format", "json"] });
after(() => host.stop());

it("A temporary file that nobody uses is dropped, and log and audit tell it", async () => {
    const client = await host.connect();
    const lines = () => readFileSync(audit, "utf8").split("\n").filter((line) => line).map((line) => JSON.parse(line));
    const transfer = client.node(fileObjectsUri, "t");
    const target = new Variant({ dataType: DataType.String, value: "root/target" });
    const [file, handle] = (await client.callMethod(transfer, "i=15749", [target])).outputArguments;
    const text = new Variant({ dataType: DataType.ByteString, value: Buffer.from("text") });
    await client.callMethod(file.value, "i=11588", [handle, text]);
    const isOver = async () => {
        await client.read("i=2258"); // the session is used
        return lines().length === 2;
    };
    await waitFor("the last audit line", isOver, 120_000);
    assert.deepEqual(lines().map(({ method, result, calls, bytes, paths, reason }) => [method, result, calls, bytes, paths, reason ?? ""]), [
        ["GenerateFileForWrite", "begun", 1, 0, ["root/target"], ""],
        ["Write", "failed", 2, 4, ["root/target"], "no call came for the time of ClientProcessingTimeout"],
    ]);
    assert.match(host.log, /root\/target: dropped what was written for it: no call came for 60000 ms/);
    await waitFor("the file to go", () => readdirSync(host.root).length === 0);
    const late = await client.callMethod(transfer, "i=15751", [handle]);
    assert.equal(late.statusCode.name, "BadInvalidArgument");
    assert.equal(existsSync(host.path("target")), false);
});
