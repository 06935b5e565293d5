// The audit lines of calls that change something, in the log and in a file.

import assert from "node:assert/strict";
import { readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { describe, it } from "node:test";
import { startLimitedHost } from "./adversary.mjs";
import { hostUri, makeFolder, noTime, opcua, startHost, waitFor } from "./harness.mjs";

const { DataType, Variant } = opcua;

/** Starts a host that writes audit lines to a file, as JSON; `lines()` returns them. */
async function startAudited(options = {}) {
    const file = join(makeFolder("audit"), "audit.log");
    const host = await startHost({ ...options, flags: ["--audit-log", file, "--audit-format", "json", ...(options.flags ?? [])] });
    const lines = () => readFileSync(file, "utf8").split("\n").filter((line) => line).map((line) => JSON.parse(line));
    return { host, lines, until: (count) => waitFor(`${count} audit lines`, () => lines().length >= count && lines()) };
}

const shorten = ({ method, result, calls, bytes, paths, reason }) => ({ method, result, calls, bytes, paths, ...(reason ? { reason } : {}) });

describe("An audit line", () => {
    it("tells user, address, session, method, paths, result and bytes of each change", async () => {
        const { host, until } = await startAudited({ users: { anna: "secret of anna" } });
        const client = await host.connect({ policy: "Basic256Sha256", user: "anna", password: "secret of anna" });
        const files = await client.createFiles();
        await files.call("CreateDirectory", "d");
        await files.nextEvent("CreateDirectoryResultEvent");
        await files.call("UploadFile", "d/a", Buffer.from("text"), noTime, 0);
        await files.nextEvent("AckEvent");
        await files.call("SetDateTime", "d/a", new Date());
        await files.call("List", "d", false);
        await files.call("Exists", "d/a");
        await files.call("Delete", ["d/a", "d"]);
        const lines = await until(4);
        await host.stop();
        assert.deepEqual(lines.map(shorten), [
            { method: "CreateDirectory", result: "taken", calls: 1, bytes: 0, paths: ["d"] },
            { method: "UploadFile", result: "done", calls: 1, bytes: 4, paths: ["d/a"] },
            { method: "SetDateTime", result: "taken", calls: 1, bytes: 0, paths: ["d/a"] },
            { method: "Delete", result: "taken", calls: 1, bytes: 0, paths: ["d/a", "d"] },
        ]);
        for (const { time, user, address, session } of lines) {
            assert.match(time, /^\d{4}-\d\d-\d\dT/);
            assert.deepEqual({ user, address, session }, { user: "anna", address: "127.0.0.1", session: 1 });
        }
        assert.match(host.log, /Notice Audit 0 "user='anna' address=127\.0\.0\.1 session=1 method=UploadFile result=done calls=1 bytes=4 path='d\/a'"/);
        assert.match(host.log, /Session of 'anna' from \S+ opened, session=1"/);
    });

    it("sums up the calls with one handle, and leaves out what only reads", async () => {
        const { host, until, lines } = await startAudited();
        const client = await host.connect();
        const files = await client.createFiles();
        const handle = await files.call("OpenWrite", "big", Buffer.alloc(1_000));
        for (let i = 0; i < 50; ++i) {
            await files.call("Write", handle, Buffer.alloc(1_000));
        }
        await files.call("WriteClose", handle, Buffer.alloc(1_000), noTime, 0);
        await files.nextEvent("AckEvent");
        const read = await files.call("Open", "big", 1);
        await files.barrier();
        await files.call("Read", read, 10);
        await files.call("Close", read);
        await files.nextEvent("AckEvent");
        await until(2);
        await host.stop();
        assert.deepEqual(lines().map(shorten), [
            { method: "OpenWrite", result: "begun", calls: 1, bytes: 1_000, paths: ["big"] },
            { method: "WriteClose", result: "done", calls: 52, bytes: 52_000, paths: ["big"] },
        ]);
    });

    it("says why a call failed: in the module, by its arguments, or as its session ended", async () => {
        const { host, until } = await startAudited();
        const client = await host.connect();
        const files = await client.createFiles();
        await files.call("Open", "nowhere/a", 0);
        await files.nextEvent("AckEvent");
        const wrong = [new Variant({ dataType: DataType.String, value: "a" }), new Variant({ dataType: DataType.String, value: "b" })];
        await client.callMethod(files.nodeId, client.node("urn:Talvensor:FileSystem", 1130), wrong);
        await files.call("Open", "left", 0);
        await files.barrier();
        await client.close();
        const lines = await until(5);
        await host.stop();
        assert.deepEqual(lines.map(shorten), [
            { method: "Open", result: "begun", calls: 1, bytes: 0, paths: ["nowhere/a"] },
            { method: "Open", result: "failed", calls: 1, bytes: 0, paths: ["nowhere/a"], reason: "the file could not be opened" },
            { method: "SetDateTime", result: "refused", calls: 1, bytes: 0, paths: ["a"], reason: "BadInvalidArgument" },
            { method: "Open", result: "begun", calls: 1, bytes: 0, paths: ["left"] },
            { method: "Open", result: "ended", calls: 1, bytes: 0, paths: ["left"], reason: "the session has ended" },
        ]);
    });

    it("is that of each session that wrote through one handle of a shared node", async () => {
        const { host, until } = await startAudited();
        const [first, second] = [await host.connect(), await host.connect()];
        const [mine, theirs] = [await first.files(), await second.files(second.node(hostUri, "FileSystem"))];
        const handle = await mine.call("OpenWrite", "shared", Buffer.alloc(1));
        await theirs.call("Write", handle, Buffer.alloc(20));
        await mine.call("Close", handle);
        const lines = await until(3);
        await host.stop();
        assert.deepEqual(
            lines.map(({ session, method, result, bytes, paths }) => [session, method, result, bytes, paths]),
            [
                [1, "OpenWrite", "begun", 1, ["shared"]],
                [1, "Close", "done", 1, ["shared"]],
                [2, "Write", "done", 20, ["shared"]],
            ]
        );
    });

    it("cannot be forged or broken by a name", async () => {
        const { host, until } = await startAudited();
        const files = await (await host.connect()).createFiles();
        const name = "a' result=done\nuser='root\u202e\\\"";
        await files.call("CreateDirectory", name);
        const [line] = await until(1);
        await host.stop();
        assert.equal(line.paths[0], "a' result=done\\x0auser='root\\xe2\\x80\\xae\\x5c\"");
        const logged = host.log.split("\n").filter((each) => each.includes(" Audit "));
        assert.equal(logged.length, 1);
        assert.match(logged[0], /path='a\\x5cx27 result=done\\x5cx0auser=\\x5cx27root/);
    });
});

describe("An audit file", () => {
    it("that takes no lines is reported, and the host serves on", async () => {
        // A file that is as large as it may become stands for a full disk.
        const file = join(makeFolder("audit"), "audit.log");
        const content = "x".repeat(8_191) + "\n";
        writeFileSync(file, content);
        const host = await startLimitedHost(["fsize=8192:8192"], { flags: ["--audit-log", file] });
        const files = await (await host.connect()).createFiles();
        await files.call("CreateDirectory", "d");
        await waitFor("the report", () => /cannot write to .*File too large/.test(host.log));
        await waitFor("the count", () => /1 audit lines were lost/.test(host.log));
        await files.barrier();
        await host.stop();
        assert.equal(readFileSync(file, "utf8"), content);
    });
});
