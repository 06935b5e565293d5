// The fifteen methods, on a shared file system and on one of the session's own, called by the ids
// that the type and the instances have.

import assert from "node:assert/strict";
import { chmodSync, existsSync, mkdirSync, readFileSync, statSync, writeFileSync } from "node:fs";
import { after, before, beforeEach, describe, it } from "node:test";
import { CallError, methods, noTime, opcua, startHost } from "./harness.mjs";

const { DataType, Variant, VariantArrayType } = opcua;

const openModes = { truncateWrite: 0, read: 1, append: 2, truncateReadWrite: 3, readWrite: 4, appendRead: 5 };
const unknownHandle = 1;
const time = new Date("2001-02-03T04:05:06Z");

const text = (value) => Buffer.from(value);
const scalar = (dataType, value) => new Variant({ dataType, arrayType: VariantArrayType.Scalar, value });
const list = (dataType, value) => new Variant({ dataType, arrayType: VariantArrayType.Array, value });

let host;
before(async () => (host = await startHost()));
after(() => host.stop());

let count = 0;
/** Returns a path that no other test uses. */
const newPath = () => host.path(`file${++count}`);
const newFile = (content = "") => {
    const path = newPath();
    writeFileSync(path, content);
    return path;
};
const contentOf = (path) => readFileSync(path, "utf8");

function describeMethods(where, makeFiles) {
    describe(`On ${where}`, () => {
        let files;
        before(async () => (files = await makeFiles(await host.connect())));
        beforeEach(() => assert.deepEqual(files.events, [], "an event is left over"));

        const acknowledged = async (handle, result) => {
            const event = await files.nextEvent("AckEvent");
            assert.deepEqual([event.FileHandle, event.Result], [handle, result]);
        };
        const open = (path, mode = openModes.read) => files.call("Open", path, mode);
        const close = async (handle, result = 0) => {
            await files.call("Close", handle);
            await acknowledged(handle, result);
        };

        it("Open makes handles and is silent", async () => {
            const path = newFile("content");
            const handles = [await open(path), await open(path)];
            assert.notEqual(handles[0], handles[1]);
            assert.ok(handles.every((handle) => handle > 0));
            await close(handles[0]); // the next event, so there was none before
            await close(handles[1]);
        });

        it("Open says that there is no such file", async () => {
            const handle = await open(newPath());
            await acknowledged(handle, 1);
            await close(handle, 3);
        });

        it("Open knows its modes", async () => {
            const results = {};
            for (const [name, mode] of Object.entries({ ...openModes, unknown: 7 })) {
                const path = newFile("12345");
                const handle = await open(path, mode);
                await files.call("Write", handle, text("ab"));
                await files.call("Close", handle);
                const { Result } = await files.nextEvent("AckEvent");
                // A write that fails ends the handle: its Close is answered as well.
                if (Result !== 0) {
                    await acknowledged(handle, 3);
                }
                results[name] = [Result, contentOf(path)];
            }
            assert.deepEqual(results, {
                truncateWrite: [0, "ab"], read: [2, "12345"], append: [0, "12345ab"], truncateReadWrite: [0, "ab"],
                readWrite: [0, "ab345"], appendRead: [0, "12345ab"], unknown: [0, "ab"],
            });
        });

        it("Close answers for a handle that is not known", () => close(unknownHandle, 3));

        it("UploadFile writes content, time and permissions", async () => {
            const path = newPath();
            await files.upload(path, "whole", time, 0x06);
            assert.equal(contentOf(path), "whole");
            const { mtime, mode } = statSync(path);
            assert.equal(mtime.toISOString(), time.toISOString());
            assert.equal(mode & 0o777, 0o555);
        });

        it("UploadFile leaves time and permissions alone", async () => {
            const path = newFile("before");
            chmodSync(path, 0o640);
            const earlier = Date.now();
            await files.upload(path, "");
            const { mtimeMs, mode, size } = statSync(path);
            assert.deepEqual([size, mode & 0o777], [0, 0o640]);
            assert.ok(mtimeMs >= earlier - 1000);
        });

        it("UploadFile says what it cannot open, and its handle stays until it is closed", async () => {
            const handle = await files.call("UploadFile", host.path("missing", "file"), text("x"), noTime, 0);
            await acknowledged(handle, 1);
            await close(handle);
            await close(handle, 3);
        });

        it("OpenWrite, Write and WriteClose write in blocks", async () => {
            const path = newPath();
            const handle = await files.call("OpenWrite", path, text("one "));
            await files.call("Write", handle, text("two "));
            await files.call("Write", handle, text(""));
            await files.call("WriteClose", handle, text("three"), time, 0x04);
            await acknowledged(handle, 0);
            assert.equal(contentOf(path), "one two three");
            assert.equal(statSync(path).mtime.toISOString(), time.toISOString());
            assert.equal(statSync(path).mode & 0o111, 0o111);
            await close(handle, 3);
        });

        it("OpenWrite says what it cannot open", async () => {
            const handle = await files.call("OpenWrite", host.path("missing", "file"), text("x"));
            await acknowledged(handle, 1);
            await close(handle, 3);
        });

        it("Write and WriteClose say when not all is written", async () => {
            const path = newFile("text");
            for (const method of ["Write", "WriteClose"]) {
                const handle = await open(path);
                const more = method === "WriteClose" ? [noTime, 0] : [];
                // More than a stream buffers, so that writing fails at once.
                await files.call(method, handle, Buffer.alloc(100_000), ...more);
                await acknowledged(handle, 2);
                await close(handle, 3);
            }
            assert.equal(contentOf(path), "text");
        });

        it("Write and WriteClose pass over a handle that is not known", async () => {
            await files.call("Write", unknownHandle, text("x"));
            await files.call("WriteClose", unknownHandle, text("x"), noTime, 0);
            await close(unknownHandle, 3); // the next event
        });

        it("CreateDirectory makes all that is missing, and answers when it cannot", async () => {
            const path = host.path(`folder${++count}`);
            const file = newFile("file");
            for (const each of [`${path}/b/c`, file, `${file}/below`]) {
                await files.call("CreateDirectory", each);
                await files.nextEvent("CreateDirectoryResultEvent");
            }
            assert.ok(statSync(`${path}/b/c`).isDirectory());
            assert.equal(contentOf(file), "file");
        });

        it("Delete removes files and trees, and answers for what is not there", async () => {
            const tree = host.path(`tree${++count}`);
            mkdirSync(`${tree}/a/b`, { recursive: true });
            const [first, second] = [newFile(), newFile()];
            for (const paths of [[first, host.path("missing"), tree], []]) {
                await files.call("Delete", paths);
                await files.nextEvent("DeleteResultEvent");
            }
            assert.deepEqual([first, second, tree].map(existsSync), [false, true, false]);
        });

        it("Delete of a text that is no list removes nothing", async () => {
            const path = newFile();
            await files.call("Delete", scalar(DataType.String, path));
            await files.nextEvent("DeleteResultEvent");
            assert.ok(existsSync(path));
        });

        it("List gives names, times and kinds, with folders below where asked", async () => {
            const folder = host.path(`list${++count}`);
            mkdirSync(`${folder}/sub`, { recursive: true });
            writeFileSync(`${folder}/sub/file`, "");
            const listed = async (path, recursive) => {
                await files.call("List", path, recursive);
                const { Content, LimitExceeded } = await files.nextEvent("ListResultEvent");
                assert.equal(LimitExceeded, false);
                return Content.map((entry) => [entry.path, entry.isDirectory]);
            };
            assert.deepEqual(await listed(folder, false), [["sub", true]]);
            assert.deepEqual(await listed(folder, true), [["sub", true], ["sub/file", false]]);
            assert.deepEqual(await listed(`${folder}/missing`, true), []);
        });

        it("Exists tells files and folders from nothing", async () => {
            const answers = [];
            for (const path of [newFile(), host.root, newPath(), ""]) {
                await files.call("Exists", path);
                answers.push((await files.nextEvent("ExistsResultEvent")).Exist);
            }
            assert.deepEqual(answers, [true, true, false, false]);
        });

        it("Read gives up to 61440 bytes, and nothing for a handle that is not open", async () => {
            const content = Buffer.alloc(100_000, "0123456789");
            const handle = await open(newFile(content));
            await files.barrier();
            const blocks = [];
            for (const length of [10, 0, 100_000, 100_000, 1]) {
                blocks.push(await files.call("Read", handle, length));
            }
            assert.deepEqual(blocks.map((block) => block.length), [10, 0, 61_440, 38_550, 0]);
            assert.ok(Buffer.concat(blocks).equals(content));
            await close(handle);
            for (const closed of [handle, unknownHandle]) {
                const result = await files.tryCall("Read", closed, 10);
                assert.equal(result.statusCode.name, "Good");
                assert.deepEqual(result.outputArguments ?? [], []);
            }
        });

        it("GetDateTime and SetDateTime read and set whole seconds", async () => {
            const path = newFile();
            await files.call("SetDateTime", path, new Date(time.getTime() + 900));
            assert.equal((await files.call("GetDateTime", path)).toISOString(), time.toISOString());
            assert.equal(statSync(path).mtime.toISOString(), time.toISOString());
        });

        it("GetDateTime gives nothing and SetDateTime does nothing where there is no file", async () => {
            const path = newPath();
            await files.call("SetDateTime", path, time);
            assert.equal(await files.call("GetDateTime", path), undefined);
            assert.equal(existsSync(path), false);
        });

        it("GetPosition and SetPosition tell and move the position", async () => {
            const handle = await open(newFile("0123456789"));
            await files.barrier();
            const positions = [await files.call("GetPosition", handle)];
            await files.call("SetPosition", handle, [0, 7]);
            positions.push(await files.call("GetPosition", handle));
            assert.deepEqual(positions, [[0, 0], [0, 7]]);
            assert.equal(String(await files.call("Read", handle, 100)), "789");
            await close(handle);
            await files.call("SetPosition", unknownHandle, [0, 7]);
            assert.equal(await files.call("GetPosition", unknownHandle), undefined);
        });

        const refused = async (name, ...inputs) => {
            const error = await files.call(name, ...inputs).catch((each) => each);
            assert.ok(error instanceof CallError, `${name} was not refused`);
            return [error.status, error.argumentStatuses];
        };

        it("every method counts its arguments", async () => {
            for (const [name, { inputs }] of Object.entries(methods)) {
                const values = inputs.map(exampleOf);
                const more = [...values, scalar(DataType.Int32, 1)];
                assert.deepEqual(await refused(name, ...values.slice(1)), ["BadArgumentsMissing", []], name);
                assert.deepEqual(await refused(name, ...more), ["BadTooManyArguments", []], name);
            }
        });

        it("every method checks the type of each argument", async () => {
            for (const [name, { inputs }] of Object.entries(methods)) {
                for (let wrong = 0; wrong < inputs.length; ++wrong) {
                    const values = inputs.map(exampleOf);
                    values[wrong] = scalar(DataType.Double, 1.5);
                    const statuses = inputs.map((_, i) => (i === wrong ? "BadTypeMismatch" : "Good"));
                    assert.deepEqual(await refused(name, ...values), ["BadInvalidArgument", statuses], `${name} ${wrong}`);
                }
            }
        });

        it("refuses lists where one value is declared, and no value at all", async () => {
            const mismatch = ["BadInvalidArgument", ["BadTypeMismatch"]];
            assert.deepEqual(await refused("Exists", list(DataType.String, [newPath()])), mismatch);
            assert.deepEqual(await refused("Exists", new Variant({ dataType: DataType.Null })), mismatch);
            assert.deepEqual(await refused("Delete", list(DataType.UInt32, [1])), mismatch);
        });

        it("takes integers of other widths where they fit, and refuses them where they do not", async () => {
            await files.call("Close", scalar(DataType.Int16, unknownHandle));
            await acknowledged(unknownHandle, 3);
            await files.call("Close", scalar(DataType.UInt64, [0, unknownHandle]));
            await acknowledged(unknownHandle, 3);
            const isOutOfRange = ["BadInvalidArgument", ["BadOutOfRange"]];
            assert.deepEqual(await refused("Close", scalar(DataType.Int16, -1)), isOutOfRange);
            assert.deepEqual(await refused("Close", scalar(DataType.UInt64, [1, 0])), isOutOfRange);
            const negative = [unknownHandle, scalar(DataType.Int64, [0xffffffff, 0xffffffff])];
            assert.deepEqual(await refused("SetPosition", ...negative), ["BadInvalidArgument", ["Good", "BadOutOfRange"]]);
            const mode = [newFile(), scalar(DataType.Int32, -1)];
            assert.deepEqual(await refused("Open", ...mode), ["BadInvalidArgument", ["Good", "BadOutOfRange"]]);
        });

        it("refuses texts with a NUL, which would end there for the operating system", async () => {
            const path = newFile("kept");
            const cut = `${path}\0x`;
            const first = (count) => ["BadInvalidArgument", ["BadOutOfRange", ...Array(count).fill("Good")]];
            assert.deepEqual(await refused("Delete", [cut]), first(0));
            assert.deepEqual(await refused("Delete", ["missing", cut, "missing"]), first(0));
            assert.deepEqual(await refused("Delete", scalar(DataType.String, cut)), first(0));
            assert.deepEqual(await refused("Open", cut, openModes.truncateWrite), first(1));
            assert.deepEqual(await refused("OpenWrite", cut, text("x")), first(1));
            assert.deepEqual(await refused("UploadFile", cut, text("x"), noTime, 0), first(3));
            assert.deepEqual(await refused("CreateDirectory", `${newPath()}\0`), first(0));
            assert.deepEqual(await refused("List", cut, false), first(1));
            assert.deepEqual(await refused("Exists", "\0"), first(0));
            assert.deepEqual(await refused("GetDateTime", cut), first(0));
            assert.deepEqual(await refused("SetDateTime", cut, time), first(1));
            assert.equal(contentOf(path), "kept");
            // Bytes are bytes.
            await files.upload(path, "a\0b");
            assert.equal(contentOf(path), "a\0b");
        });

        it("refuses methods and objects that are not there", async () => {
            const { client } = files;
            const call = async (objectId, methodId) => (await client.callMethod(objectId, methodId)).statusCode.name;
            assert.equal(await call(files.nodeId, client.node("urn:Talvensor:Host", 999)), "BadMethodInvalid");
            assert.equal(await call(files.nodeId, client.node("urn:Talvensor:Host", 2)), "BadMethodInvalid");
            assert.equal(await call(client.node("urn:Talvensor:Host", "Missing"), files.method("Exists")), "BadNodeIdUnknown");
            assert.equal(await call(client.folder, files.method("Exists")), "BadMethodInvalid");
            assert.equal(await call(client.node("urn:Talvensor:FileSystem", 1), files.method("Exists")), "BadNodeClassInvalid");
        });

        it("is called by the ids that browsing it gives", async () => {
            const { references } = await files.client.browse(files.nodeId);
            assert.equal(references.length, Object.keys(methods).length);
            const exists = references.find((each) => each.browseName.name === "Exists");
            const result = await files.client.callMethod(files.nodeId, exists.nodeId, files.variants("Exists", [host.root]));
            assert.equal(result.statusCode.name, "Good");
            assert.equal((await files.nextEvent("ExistsResultEvent")).Exist, true);
        });
    });
}

/** Returns a value for a declared argument that does no harm. */
function exampleOf(declared) {
    if (Array.isArray(declared)) {
        return list(declared[0], ["missing"]);
    }
    const examples = new Map([
        [DataType.String, "missing"], [DataType.ByteString, Buffer.alloc(0)], [DataType.DateTime, time],
        [DataType.Boolean, false], [DataType.UInt64, [0, 1]],
    ]);
    return scalar(declared, examples.get(declared) ?? 1);
}

describeMethods("a shared file system", (client) => client.files());
describeMethods("a file system of the session's own", (client) => client.createFiles());
