// The file objects as clients of the standard use them, which know nothing of this host: a library for
// files, and browsing alone.

import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { createHash, randomBytes } from "node:crypto";
import { once } from "node:events";
import { closeSync, mkdirSync, openSync, readFileSync, readSync, truncateSync, writeFileSync, writeSync } from "node:fs";
import { after, before, describe, it } from "node:test";
import fileTransfer from "node-opcua-file-transfer";
import { fileObjectsFlags, opcua, startHost, waitFor } from "./harness.mjs";

const { DataType, Variant } = opcua;
const { ClientFile, OpenFileMode } = fileTransfer;
const mebibyte = 1024 * 1024;
const entryCount = process.env.TALVENSOR_LONG === "1" ? 100_000 : 20_000;

const hash = (content) => createHash("sha256").update(content).digest("hex");
const toNumber = ([high, low]) => high * 2 ** 32 + low;
const toPosition = (number) => [Math.floor(number / 2 ** 32), number % 2 ** 32];
const text = (value) => new Variant({ dataType: DataType.String, value });
const flag = (value) => new Variant({ dataType: DataType.Boolean, value });
const id = (value) => new Variant({ dataType: DataType.NodeId, value });

const handle = ["FileHandle", "UInt32"];
const options = ["GenerateOptions", "BaseDataType"];
const completion = ["CompletionStateMachine", "NodeId"];

/** The members of the types, as OPC 10000-20 defines them: inputs and outputs of methods, properties. */
const standardTypes = {
    FileType: {
        clause: "4.2",
        methods: {
            Open: [[["Mode", "Byte"]], [handle]],
            Close: [[handle], []],
            Read: [[handle, ["Length", "Int32"]], [["Data", "ByteString"]]],
            Write: [[handle, ["Data", "ByteString"]], []],
            GetPosition: [[handle], [["Position", "UInt64"]]],
            SetPosition: [[handle, ["Position", "UInt64"]], []],
        },
        properties: {
            Size: "UInt64", Writable: "Boolean", UserWritable: "Boolean", OpenCount: "UInt16", MimeType: "String",
            MaxByteStringLength: "UInt32", LastModifiedTime: "DateTime",
        },
    },
    FileDirectoryType: {
        clause: "4.3",
        methods: {
            CreateDirectory: [[["DirectoryName", "String"]], [["DirectoryNodeId", "NodeId"]]],
            CreateFile: [[["FileName", "String"], ["RequestFileOpen", "Boolean"]], [["FileNodeId", "NodeId"], handle]],
            Delete: [[["ObjectToDelete", "NodeId"]], []],
            MoveOrCopy: [
                [["ObjectToMoveOrCopy", "NodeId"], ["TargetDirectory", "NodeId"], ["CreateCopy", "Boolean"], ["NewName", "String"]],
                [["NewNodeId", "NodeId"]],
            ],
        },
        properties: {},
    },
    TemporaryFileTransferType: {
        clause: "4.4",
        methods: {
            GenerateFileForRead: [[options], [["FileNodeId", "NodeId"], handle, completion]],
            GenerateFileForWrite: [[options], [["FileNodeId", "NodeId"], handle]],
            CloseAndCommit: [[handle], [completion]],
        },
        properties: { ClientProcessingTimeout: "Duration" },
    },
};

/** Finds nodes and calls methods by their names. */
class Browser {
    constructor(client) {
        this.client = client;
    }

    browse(nodeId, pageSize) {
        const { session } = this.client;
        session.requestedMaxReferencesPerNode = pageSize;
        return session.browse({
            nodeId, browseDirection: opcua.BrowseDirection.Forward, includeSubtypes: true,
            referenceTypeId: "HierarchicalReferences", resultMask: 63,
        });
    }

    async isListed(nodeId) {
        const { statusCode, continuationPoint } = await this.browse(nodeId, 1);
        if (continuationPoint?.length) {
            await this.client.session.browseNext(continuationPoint, true);
        }
        return statusCode.isGood();
    }

    /** Returns the references of a node, page by page. */
    async references(nodeId, pageSize = 0) {
        const { session } = this.client;
        const all = [];
        let page = await this.browse(nodeId, pageSize);
        for (;;) {
            assert.equal(page.statusCode.name, "Good", `after ${all.length} references`);
            all.push(...(page.references ?? []));
            if (!page.continuationPoint?.length) {
                return all;
            }
            page = await session.browseNext(page.continuationPoint, false);
        }
    }

    /** Returns the node that a path of names leads to, from Objects on. */
    async find(...names) {
        let nodeId = opcua.coerceNodeId("i=85");
        for (const name of names) {
            const found = (await this.references(nodeId)).find(({ browseName }) => browseName.name === name);
            assert.ok(found, `${name} is there`);
            nodeId = found.nodeId;
        }
        return nodeId;
    }

    async call(nodeId, method, ...inputs) {
        const found = (await this.references(nodeId)).find(({ browseName }) => browseName.name === method);
        const result = await this.client.callMethod(nodeId, found.nodeId, inputs);
        assert.equal(result.statusCode.name, "Good");
        return (result.outputArguments ?? []).map(({ value }) => value);
    }

    async names(nodeId) {
        const names = (await this.references(nodeId)).filter(({ referenceTypeId }) => referenceTypeId.value === 35);
        return names.map(({ browseName }) => browseName.name).sort();
    }
}

describe("The nodes of the standard", () => {
    let host;
    let client;
    let browser;
    before(async () => {
        host = await startHost({ flags: fileObjectsFlags });
        writeFileSync(host.path("file"), "content");
        mkdirSync(host.path("directory"));
        client = await host.connect();
        browser = new Browser(client);
    });
    after(() => host.stop());

    const nameOf = async (nodeId) => (await client.read(nodeId, "BrowseName")).value.value.name;

    /** Returns the base namespace's types that a node's type derives from. */
    async function standardTypesOf(nodeId) {
        const [type] = (await client.browse(nodeId, { referenceTypeId: "HasTypeDefinition" })).references;
        const names = [];
        for (let next = type.nodeId; next !== undefined;) {
            if (next.namespace === 0) {
                names.push(await nameOf(next));
            }
            const inverse = { referenceTypeId: "HasSubtype", browseDirection: opcua.BrowseDirection.Inverse };
            next = (await client.browse(next, inverse)).references?.[0]?.nodeId;
        }
        return names;
    }

    async function argumentsOf(method, property) {
        const found = (await browser.references(method)).find(({ browseName }) => browseName.name === property);
        const described = found ? (await client.read(found.nodeId)).value.value : [];
        return Promise.all(described.map(async ({ name, dataType }) => [name, await nameOf(dataType)]));
    }

    const objects = {
        "a file": [["FileSystem", "root", "file"], "FileType"],
        "a directory": [["FileSystem", "root", "directory"], "FileDirectoryType"],
        "a folder of the host": [["FileSystem", "root"], "FileDirectoryType"],
        "the file system": [["FileSystem"], "FileDirectoryType"],
        "the transfer of temporary files": [["FileSystem", "TemporaryFileTransfer"], "TemporaryFileTransferType"],
    };
    for (const [what, [path, type]] of Object.entries(objects)) {
        const { clause, methods, properties } = standardTypes[type];

        it(`${clause}: ${what} is of the type`, async () => {
            assert.ok((await standardTypesOf(await browser.find(...path))).includes(type));
        });

        for (const [name, [inputs, outputs]] of Object.entries(methods)) {
            it(`${clause}: ${what} has ${name} with its arguments`, async () => {
                const members = await browser.references(await browser.find(...path));
                const method = members.find(({ browseName }) => browseName.name === name);
                assert.equal(method.browseName.namespaceIndex, 0);
                assert.equal(method.nodeClass, opcua.NodeClass.Method);
                assert.deepEqual(await argumentsOf(method.nodeId, "InputArguments"), inputs);
                assert.deepEqual(await argumentsOf(method.nodeId, "OutputArguments"), outputs);
            });
        }

        for (const [name, dataType] of Object.entries(properties)) {
            it(`${clause}: ${what} has ${name}`, async () => {
                const members = await browser.references(await browser.find(...path));
                const property = members.find(({ browseName }) => browseName.name === name);
                assert.equal(property.browseName.namespaceIndex, 0);
                assert.equal(await nameOf((await client.read(property.nodeId, "DataType")).value.value), dataType);
                assert.equal((await client.read(property.nodeId)).statusCode.name, "Good");
            });
        }
    }

    it("4.3: the root is a component of Objects and of Server", async () => {
        for (const parent of ["i=85", "i=2253"]) {
            const { references } = await client.browse(parent, { referenceTypeId: "HasComponent" });
            assert.ok(references.some(({ nodeId, browseName }) => String(nodeId) === "ns=0;i=16314" && browseName.name === "FileSystem"), parent);
        }
    });

    it("4.3: directories organize files and directories", async () => {
        const { references } = await client.browse(await browser.find("FileSystem", "root"), { referenceTypeId: "Organizes" });
        assert.deepEqual(references.map(({ browseName }) => browseName.name).sort(), ["directory", "file"]);
    });

    it("4.3.3, 4.3.4: a name becomes browse name and display name", async () => {
        const folder = await browser.find("FileSystem", "root");
        const [directory] = await browser.call(folder, "CreateDirectory", text("Übersicht"));
        const [file] = await browser.call(folder, "CreateFile", text("Plan.txt"), flag(false));
        for (const [nodeId, name] of [[directory, "Übersicht"], [file, "Plan.txt"]]) {
            assert.equal(await nameOf(nodeId), name);
            assert.equal((await client.read(nodeId, "DisplayName")).value.value.text, name);
        }
    });

    it("4.4: temporary files cannot be found by browsing", async () => {
        const transfer = await browser.find("FileSystem", "TemporaryFileTransfer");
        const members = async () => (await browser.references(transfer)).map(({ browseName }) => browseName.name);
        const before = await members();
        await browser.call(transfer, "GenerateFileForRead", text("root/file"));
        assert.deepEqual(await members(), before);
    });
});

describe("A client of the standard", () => {
    let host;
    let client;
    let browser;
    before(async () => {
        host = await startHost({ flags: fileObjectsFlags });
        client = await host.connect();
        browser = new Browser(client);
    });
    after(() => host.stop());

    const openFile = async (name, mode) => {
        const file = new ClientFile(client.session, await browser.find("FileSystem", "root", name));
        await file.open(mode);
        return file;
    };

    for (const size of [0, 1, mebibyte, mebibyte + 1, 20_000_000]) {
        it(`writes and reads a file of ${size} bytes`, async () => {
            const content = randomBytes(size);
            const name = `file of ${size}`;
            writeFileSync(host.path(name), "what it held before");
            const written = await openFile(name, OpenFileMode.WriteEraseExisting);
            for (let position = 0; position < size; position += mebibyte) {
                await written.write(content.subarray(position, position + mebibyte));
            }
            await written.close();
            assert.equal(hash(readFileSync(host.path(name))), hash(content));

            const file = await openFile(name, OpenFileMode.Read);
            assert.equal(toNumber(await file.size()), size);
            assert.equal(await file.openCount(), 1);
            const blocks = [];
            do {
                blocks.push(await file.read(mebibyte));
            } while (blocks.at(-1).length > 0);
            await file.close();
            assert.equal(hash(Buffer.concat(blocks)), hash(content));
        });
    }

    it("reads and writes beyond 4 GiB", async () => {
        const path = host.path("sparse");
        const position = 2 ** 32 + 7;
        writeFileSync(path, "");
        truncateSync(path, 5 * 2 ** 30);
        const descriptor = openSync(path, "r+");
        writeSync(descriptor, "beyond", position);
        const file = await openFile("sparse", OpenFileMode.ReadWrite);
        assert.equal(toNumber(await file.size()), 5 * 2 ** 30);
        await file.setPosition(toPosition(position));
        assert.equal((await file.read(6)).toString(), "beyond");
        assert.equal(toNumber(await file.getPosition()), position + 6);
        await file.write(Buffer.from(" it all"));
        await file.close();
        const found = Buffer.alloc(13);
        readSync(descriptor, found, 0, found.length, position);
        closeSync(descriptor);
        assert.equal(found.toString(), "beyond it all");
    });

    it("makes, fills, copies, moves and deletes what is in a directory", async () => {
        const folder = await browser.find("FileSystem", "root");
        const [directory] = await browser.call(folder, "CreateDirectory", text("directory"));
        const [created] = await browser.call(directory, "CreateFile", text("report.txt"), flag(false));
        const file = new ClientFile(client.session, created);
        await file.open(OpenFileMode.Write);
        await file.write(Buffer.from("content"));
        await file.close();
        assert.deepEqual(await browser.names(directory), ["report.txt"]);
        await browser.call(directory, "MoveOrCopy", id(created), id(directory), flag(true), text("copy.txt"));
        await browser.call(directory, "MoveOrCopy", id(created), id(folder), flag(false), text("moved.txt"));
        assert.deepEqual(await browser.names(directory), ["copy.txt"]);
        assert.equal(readFileSync(host.path("moved.txt"), "utf8"), "content");
        assert.equal(readFileSync(host.path("directory/copy.txt"), "utf8"), "content");
        await browser.call(folder, "Delete", id(directory));
        assert.ok(!(await browser.names(folder)).includes("directory"));
    });

    it(`browses ${entryCount} entries to the end while others come and go`, async () => {
        mkdirSync(host.path("many"));
        for (let i = 0; i < entryCount; ++i) {
            closeSync(openSync(host.path("many", `stays ${i}`), "w"));
        }
        // Makes files, and deletes them when a hundred younger ones are there.
        const program = `
            const { unlinkSync, writeFileSync } = require("node:fs");
            const name = (i) => process.argv[1] + "/goes " + i;
            process.stdout.write("ready");
            const more = (i) => {
                writeFileSync(name(i), "");
                if (i >= 100) unlinkSync(name(i - 100));
                setImmediate(more, i + 1);
            };
            more(0);`;
        const other = spawn(process.execPath, ["-e", program, host.path("many")], { stdio: ["ignore", "pipe", "inherit"] });
        let output = "";
        other.stdout.on("data", (data) => (output += data));
        const exited = once(other, "exit");
        try {
            await waitFor("the other process", () => output === "ready");
            const directory = await browser.find("FileSystem", "root", "many");
            // A directory that nobody has listed yet has no entries to show while the disk is slow to list it.
            await waitFor("the first listing", () => browser.isListed(directory));
            const found = new Map();
            for (const { browseName } of await browser.references(directory, 1_000)) {
                found.set(browseName.name, (found.get(browseName.name) ?? 0) + 1);
            }
            assert.equal(other.exitCode, null);
            const wrong = [];
            for (let i = 0; i < entryCount; ++i) {
                if (found.get(`stays ${i}`) !== 1) {
                    wrong.push([i, found.get(`stays ${i}`)]);
                }
            }
            assert.deepEqual(wrong.slice(0, 10), []);
        } finally {
            other.kill();
            await exited;
        }
    });
});
