// The files as objects, with the module of the file objects.

import assert from "node:assert/strict";
import { createHash } from "node:crypto";
import { existsSync, mkdirSync, readFileSync, utimesSync, writeFileSync } from "node:fs";
import { after, before, describe, it } from "node:test";
import { opcua, programs, startHost } from "./harness.mjs";

const { DataType, Variant, VariantArrayType } = opcua;
const fileObjectsUri = "urn:Talvensor:FileObjects";
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

const startFileHost = () =>
    startHost({ flags: ["--module", programs.fileObjectsModule, "--model", programs.fileObjectsModel] });

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
