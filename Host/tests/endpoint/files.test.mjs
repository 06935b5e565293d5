// The files as objects, with the module of the file objects.

import assert from "node:assert/strict";
import { createHash } from "node:crypto";
import { existsSync, mkdirSync, readFileSync, utimesSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { after, before, describe, it } from "node:test";
import { fileObjectsFlags, fileObjectsUri, makeFolder, opcua, startHost, waitFor } from "./harness.mjs";

const { DataType, Variant, VariantArrayType } = opcua;
const root = "i=16314";
const changed = new Date("2020-02-29T12:34:56Z");

const text = (value) => new Variant({ dataType: DataType.String, value });
const texts = (value) => new Variant({ dataType: DataType.String, arrayType: VariantArrayType.Array, value });
const flag = (value) => new Variant({ dataType: DataType.Boolean, value });
const uint32 = (value) => new Variant({ dataType: DataType.UInt32, value });
const uint32s = (value) =>
    new Variant({ dataType: DataType.UInt32, arrayType: VariantArrayType.Array, value: Uint32Array.from(value) });
const uint64 = (value) =>
    new Variant({ dataType: DataType.UInt64, arrayType: VariantArrayType.Scalar, value: [0, value] });
const toNumber = ([high, low]) => high * 2 ** 32 + low;

const startFileHost = (flags = []) => startHost({ flags: [...fileObjectsFlags, ...flags] });

describe("The methods by path", () => {
    let host;
    let client;
    before(async () => {
        host = await startFileHost();
        client = await host.connect();
        writeFileSync(host.path("file"), "content");
        utimesSync(host.path("file"), changed, changed);
        mkdirSync(host.path("directory"));
    });
    after(() => host.stop());

    /** Returns the values of the outputs. */
    async function call(method, ...inputs) {
        const result = await client.callMethod(root, client.node(fileObjectsUri, method), inputs);
        assert.equal(result.statusCode.name, "Good");
        return (result.outputArguments ?? []).map(({ value }) => value);
    }

    it("tell the states of paths", async () => {
        const paths = texts([host.path("file"), "directory", "none"]);
        const [kinds, sizes, times, permissions, access, statuses, reasons] = await call(1090, paths);
        assert.deepEqual([...kinds], [1, 2, 0]);
        assert.deepEqual([...sizes].map(toNumber), [7, 0, 0]);
        assert.equal(times[0].getTime(), changed.getTime());
        assert.deepEqual([...permissions].slice(0, 2), [0o644, 0o755]);
        assert.deepEqual([...access], [3, 3, 0]);
        assert.deepEqual([...statuses], [0, 0, opcua.StatusCodes.BadNotFound.value]);
        assert.deepEqual(reasons, ["", "", "No such file or directory"]);
    });

    it("list, copy, rename, and set permissions", async () => {
        await call(1120, text("file"), text("directory/copy"), flag(false));
        const [statuses, reasons] = await call(1110, texts(["directory/copy", "none"]), texts(["moved", "some"]), flag(true));
        assert.deepEqual([...statuses], [0, opcua.StatusCodes.BadNotFound.value]);
        assert.deepEqual(reasons, ["", "No such file or directory"]);
        assert.equal(readFileSync(host.path("moved"), "utf8"), "content");
        const [set] = await call(1150, texts(["moved"]), uint32s([0o600]));
        assert.deepEqual([...set], [0]);
        const [names, kinds, sizes, times, permissions, next] = await call(1100, text("."), uint64(0), uint32(0));
        const moved = names.indexOf("moved");
        assert.deepEqual([...names].sort(), ["directory", "file", "moved"]);
        assert.deepEqual([kinds[moved], toNumber(sizes[moved]), permissions[moved]], [1, 7, 0o600]);
        assert.equal(times.length, 3);
        assert.equal(toNumber(next), 0);
    });

    it("tell space and checksums", async () => {
        const [total, free] = await call(1130, text("file"));
        assert.ok(toNumber(total) >= toNumber(free) && toNumber(free) > 0);
        const [checksum, length] = await call(1140, text("file"), uint64(0), uint64(0));
        assert.equal(checksum.toString("hex"), createHash("sha256").update("content").digest("hex"));
        assert.equal(toNumber(length), 7);
    });

    it("say why one fails as a whole", async () => {
        const inputs = [text("none"), text("copy"), flag(false)];
        const result = await client.callMethod(root, client.node(fileObjectsUri, 1120), inputs);
        assert.equal(result.statusCode.name, "BadNotFound");
        assert.equal(result.inputArgumentDiagnosticInfos[0].additionalInfo, "No such file or directory");
        assert.equal(existsSync(host.path("copy")), false);
    });

    it("are found below the object, by the identifiers of the type's methods", async () => {
        const { references } = await client.browse(root, { referenceTypeId: "HasComponent" });
        const found = references.find(({ browseName }) => browseName.name === "GetStates");
        assert.ok(found, "GetStates is a component of the object");
        const result = await client.callMethod(root, found.nodeId, [texts(["file"])]);
        assert.equal(result.statusCode.name, "Good");
        assert.equal(found.nodeId.toString(), client.node(fileObjectsUri, 1090).toString());
    });
});

describe("An audit line of the file objects", () => {
    let host;
    let client;
    let lines;
    before(async () => {
        const file = join(makeFolder("audit"), "audit.log");
        host = await startFileHost(["--audit-log", file, "--audit-format", "json"]);
        client = await host.connect();
        const all = () => readFileSync(file, "utf8").split("\n").filter((line) => line).map((line) => JSON.parse(line));
        let seen = 0;
        lines = async (count) => {
            await waitFor(`${count} audit lines`, () => all().length >= seen + count);
            const found = all().slice(seen);
            seen += count;
            return found.map(({ method, result, calls, bytes, paths, reason }) =>
                [method, result, calls, bytes, paths, ...(reason ? [reason] : [])]);
        };
    });
    after(() => host.stop());

    const call = (object, method, ...inputs) => client.callMethod(object, method, inputs);
    const ours = (method) => client.node(fileObjectsUri, method);
    const node = (key) => client.node(fileObjectsUri, key);
    const bytes = (value) => new Variant({ dataType: DataType.ByteString, value: Buffer.from(value) });
    const byte = (value) => new Variant({ dataType: DataType.Byte, value });
    const id = (value) => new Variant({ dataType: DataType.NodeId, value });
    const int32 = (value) => new Variant({ dataType: DataType.Int32, value });

    it("names the node that is created, moved and deleted, and its new place", async () => {
        await call(node("d/root"), "i=13387", text("directory"));
        await call(node("d/root"), "i=13390", text("file"), flag(false));
        await call(node("d/root"), "i=13395", id(node("f/root/file")), id(node("d/root/directory")), flag(false), text("b"));
        await call(node("d/root"), "i=13395", id(node("d/root/directory")), id(node("d/root")), flag(true), text("copy"));
        await call(node("d/root/directory"), "i=13393", id(node("f/root/directory/b")));
        await call(node("d/root/directory"), "i=13393", id(node("f/root/directory/b")));
        assert.deepEqual(await lines(6), [
            ["CreateDirectory", "taken", 1, 0, ["root/directory"]],
            ["CreateFile", "taken", 1, 0, ["root/file"]],
            ["MoveOrCopy", "taken", 1, 0, ["root/file", "root/directory/b"]],
            ["MoveOrCopy", "taken", 1, 0, ["root/directory", "root/copy"]],
            ["Delete", "taken", 1, 0, ["root/directory/b"]],
            ["Delete", "refused", 1, 0, ["root/directory/b"],
                "BadNotFound: root/directory/b: No such file or directory"],
        ]);
    });

    it("sums up what is written between Open and Close, and leaves out what only reads", async () => {
        writeFileSync(host.path("file"), "");
        const file = node("f/root/file");
        const read = (await call(file, "i=11580", byte(1))).outputArguments[0];
        await call(file, "i=11585", read, int32(10));
        await call(file, "i=11583", read);
        await call(node("f/root/none"), "i=11580", byte(1)); // refused, but would have changed nothing
        const handle = (await call(file, "i=11580", byte(2))).outputArguments[0];
        await call(file, "i=11588", handle, bytes("first"));
        await call(file, "i=11588", handle, bytes("second"));
        await call(file, "i=11583", handle);
        await call(file, ours(1070), uint32(0o600));
        assert.deepEqual(await lines(3), [
            ["Open", "begun", 1, 0, ["root/file"]],
            ["Close", "done", 4, 11, ["root/file"]],
            ["SetPermissions", "taken", 1, 0, ["root/file"]],
        ]);
    });

    it("tells of a file that appears when it is whole, and of one that breaks off", async () => {
        const other = await host.connect();
        const transfer = node("t");
        const [made, handle] = (await call(transfer, "i=15749", text("root/new"))).outputArguments;
        await call(made.value, "i=11588", handle, bytes("text"));
        await call(transfer, "i=15751", handle);
        await other.callMethod(node("d/root"), "i=13390", [text("broken"), flag(true)]);
        await other.close();
        assert.deepEqual(await lines(4), [
            ["GenerateFileForWrite", "begun", 1, 0, ["root/new"]],
            ["CloseAndCommit", "done", 3, 4, ["root/new"]],
            ["CreateFile", "begun", 1, 0, ["root/broken"]],
            ["CreateFile", "ended", 1, 0, ["root/broken"], "the session has ended"],
        ]);
    });

    it("names each path of a call by path, and counts the failures", async () => {
        writeFileSync(host.path("a"), "");
        await call(root, ours(1110), texts(["a", "none"]), texts(["b", "c"]), flag(false));
        await call(root, ours(1120), text("b"), text("d"), flag(false));
        await call(root, ours(1150), texts(["b", "d"]), uint32s([0o600, 0o600]));
        await call(root, ours(1120), text("b"), text("d"), flag(false));
        assert.deepEqual(await lines(4), [
            ["MovePaths", "failed", 1, 0, ["a", "b", "none", "c"], "1 of 2: BadNotFound"],
            ["CopyPath", "taken", 1, 0, ["b", "d"]],
            ["SetPathPermissions", "done", 1, 0, ["b", "d"]],
            ["CopyPath", "refused", 1, 0, ["b", "d"], "BadBrowseNameDuplicated: d: File exists"],
        ]);
    });
});
