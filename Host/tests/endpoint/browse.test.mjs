// Browsing and reading by a client that knows nothing of the host.

import assert from "node:assert/strict";
import { after, before, describe, it } from "node:test";
import { eventTypes, fileSystemUri, hostUri, methods, opcua, startHost } from "./harness.mjs";

const boolean = "i=1";
const byteString = "i=15";
const uInt32 = "i=7";
const uInt64 = "i=9";
const string = "i=12";
const utcTime = "i=294";
const nodeIdType = "i=17";
const openMode = 33;
const listItem = 50;
const permissionFlags = 51;

const path = ["path", string];
const fileHandle = ["fileHandle", uInt32];
const data = ["data", byteString];
const dateTime = ["dateTime", utcTime];
const permissions = ["permissions", permissionFlags];
const position = ["position", uInt64];

// Name, data type and, for arrays, the value rank. A number is a type of the file system's model.
const declared = {
    Open: [[path, ["mode", openMode]], [fileHandle]],
    Close: [[fileHandle], []],
    UploadFile: [[path, ["content", byteString], dateTime, permissions], [fileHandle]],
    OpenWrite: [[path, data], [fileHandle]],
    Write: [[fileHandle, data], []],
    WriteClose: [[fileHandle, data, dateTime, permissions], []],
    CreateDirectory: [[path], []],
    Delete: [[["paths", string, 1]], []],
    List: [[path, ["recursive", boolean]], []],
    Exists: [[path], []],
    Read: [[fileHandle, ["length", uInt32]], [data]],
    GetDateTime: [[path], [dateTime]],
    SetDateTime: [[path, dateTime], []],
    GetPosition: [[fileHandle], [position]],
    SetPosition: [[fileHandle, position], []],
};

const fieldTypes = {
    FileHandle: [uInt32, -1],
    Result: [uInt32, -1],
    Exist: [boolean, -1],
    Content: [listItem, 1],
    LimitExceeded: [boolean, -1],
};

describe("A host's address space", () => {
    let host;
    let client;

    before(async () => {
        host = await startHost({ flags: ["--node", "First", "--node", "Second"] });
        client = await host.connect();
    });
    after(() => host.stop());

    const own = (identifier) => client.node(fileSystemUri, identifier);
    const toId = (type) => String(typeof type === "number" ? own(type) : opcua.coerceNodeId(type));
    const valueOf = async (nodeId, attribute) => {
        const { statusCode, value } = await client.read(nodeId, attribute);
        assert.equal(statusCode.name, "Good", `${attribute ?? "Value"} of ${nodeId}`);
        return value.value;
    };
    const children = async (nodeId, options) => {
        const { statusCode, references } = await client.browse(nodeId, options);
        assert.equal(statusCode.name, "Good", String(nodeId));
        return references;
    };
    const names = (references) => references.map((each) => each.browseName.name).sort();

    it("names its namespaces and itself", async () => {
        for (const uri of [hostUri, fileSystemUri]) {
            assert.ok(client.namespaces.includes(uri), `${uri} is not in ${client.namespaces}`);
        }
        const [applicationUri] = await valueOf("i=2254"); // Server.ServerArray
        assert.equal(client.opcua.endpoint.server.applicationUri, applicationUri);
        assert.equal(client.namespaces[1], applicationUri);
        assert.equal(await valueOf("i=2261"), "talvensor-host"); // BuildInfo.ProductName
        assert.match(await valueOf("i=2264"), /^\d+\.\d+\.\d+/); // BuildInfo.SoftwareVersion
    });

    it("has a folder with the shared file systems and one method", async () => {
        const objects = await children("i=85");
        const folder = objects.find((each) => each.browseName.name === "FileSystems");
        assert.equal(String(folder.nodeId), String(client.folder));
        assert.equal(String(folder.typeDefinition), "ns=0;i=61");
        const entries = await children(client.folder);
        assert.deepEqual(names(entries), ["CreateFileSystem", "First", "Second"]);
        for (const name of ["First", "Second"]) {
            const entry = entries.find((each) => each.browseName.name === name);
            assert.equal(String(entry.nodeId), String(client.node(hostUri, name)));
            assert.equal(String(entry.typeDefinition), String(own(1)));
            assert.equal(entry.displayName.text, name);
            assert.equal(await valueOf(entry.nodeId, "EventNotifier"), 1);
        }
    });

    it("describes the method that makes a file system", async () => {
        const method = client.node(hostUri, 2);
        assert.match((await valueOf(method, "Description")).text, /only this session/);
        const properties = await children(method);
        assert.deepEqual(names(properties), ["OutputArguments"]);
        const [output, ...others] = await valueOf(properties[0].nodeId);
        assert.deepEqual([output.name, String(output.dataType), others.length], ["nodeId", toId(nodeIdType), 0]);
    });

    it("has the file system's object type", async () => {
        const type = own(1);
        assert.equal((await valueOf(type, "BrowseName")).name, "FileSystem");
        assert.equal(await valueOf(type, "IsAbstract"), false);
        assert.match((await valueOf(type, "Description")).text, /subscribe before calling/);
        const [parent] = await children(type, { browseDirection: opcua.BrowseDirection.Inverse, referenceTypeId: "HasSubtype" });
        assert.equal(String(parent.nodeId), "ns=0;i=58");
        const generated = await children(type, { referenceTypeId: "GeneratesEvent" });
        assert.deepEqual(names(generated), Object.keys(eventTypes).sort());
    });

    const describesMethods = async (objectId) => {
        const found = (await children(objectId)).filter((each) => each.nodeClass === opcua.NodeClass.Method);
        assert.deepEqual(names(found), Object.keys(declared).sort());
        for (const { nodeId, browseName } of found) {
            assert.equal(String(nodeId), String(own(methods[browseName.name].id)), browseName.name);
            assert.equal(await valueOf(nodeId, "Executable"), true);
            assert.equal(await valueOf(nodeId, "UserExecutable"), true);
            assert.ok((await valueOf(nodeId, "Description")).text.length > 20, browseName.name);
            await describesArguments(nodeId, browseName.name);
        }
    };

    const describesArguments = async (nodeId, name) => {
        const properties = await children(nodeId);
        const [inputs, outputs] = declared[name];
        for (const [property, expected] of [["InputArguments", inputs], ["OutputArguments", outputs]]) {
            const found = properties.find((each) => each.browseName.name === property);
            const actual = found ? await valueOf(found.nodeId) : [];
            assert.deepEqual(
                actual.map((each) => [each.name, String(each.dataType), each.valueRank]),
                expected.map(([argument, type, rank = -1]) => [argument, toId(type), rank]),
                `${property} of ${name}`
            );
            for (const { name: argument, description } of actual) {
                assert.ok(description.text?.length > 10, `no description of ${argument} of ${name}`);
            }
        }
    };

    it("describes the methods and their arguments at the type", () => describesMethods(own(1)));

    it("describes the methods and their arguments at a shared file system", () =>
        describesMethods(client.node(hostUri, "First")));

    it("describes the methods and their arguments at a session's own file system", async () =>
        describesMethods(await client.createFileSystem()));

    it("describes the events and their fields", async () => {
        for (const [name, { id, fields }] of Object.entries(eventTypes)) {
            const type = own(id);
            assert.equal((await valueOf(type, "BrowseName")).name, name);
            assert.ok((await valueOf(type, "Description")).text.length > 10, name);
            const [parent] = await children(type, { browseDirection: opcua.BrowseDirection.Inverse, referenceTypeId: "HasSubtype" });
            assert.equal(String(parent.nodeId), "ns=0;i=2041", `${name} is not a BaseEventType`);
            const properties = await children(type, { referenceTypeId: "HasProperty" });
            assert.deepEqual(names(properties), [...fields].sort(), name);
            for (const { nodeId, browseName } of properties) {
                assert.equal(client.namespaces[browseName.namespaceIndex], fileSystemUri);
                const [dataType, rank] = fieldTypes[browseName.name];
                assert.equal(String(await valueOf(nodeId, "DataType")), toId(dataType), browseName.name);
                assert.equal(await valueOf(nodeId, "ValueRank"), rank, browseName.name);
                assert.ok((await valueOf(nodeId, "Description")).text.length > 10, browseName.name);
            }
        }
    });

    it("has texts for the open modes", async () => {
        assert.equal((await valueOf(own(openMode), "BrowseName")).name, "OpenModeEnum");
        const [property] = await children(own(openMode), { referenceTypeId: "HasProperty" });
        assert.equal(property.browseName.name, "EnumStrings");
        const texts = (await valueOf(property.nodeId)).map((each) => each.text);
        assert.deepEqual(texts, ["TruncateWrite", "Read", "Append", "TruncateReadWrite", "ReadWrite", "AppendRead"]);
    });

    it("has texts for the permission flags", async () => {
        assert.equal((await valueOf(own(permissionFlags), "BrowseName")).name, "ModeEnum");
        const [property] = await children(own(permissionFlags), { referenceTypeId: "HasProperty" });
        assert.equal(property.browseName.name, "OptionSetValues");
        const texts = (await valueOf(property.nodeId)).map((each) => each.text ?? "");
        assert.deepEqual(texts, ["", "ReadOnly", "Executable"]);
    });

    it("describes the structure of a listing's entries", async () => {
        const { fields, baseDataType } = await valueOf(own(listItem), "DataTypeDefinition");
        assert.equal(String(baseDataType), "ns=0;i=22");
        assert.deepEqual(
            fields.map((each) => [each.name, String(each.dataType), each.valueRank]),
            [["path", toId(string), -1], ["dateTime", toId(utcTime), -1], ["isDirectory", toId(boolean), -1]]
        );
        const [encoding] = await children(own(listItem), { referenceTypeId: "HasEncoding" });
        assert.equal(encoding.browseName.name, "Default Binary");
    });

    it("lets a client decode a listing with what it read here alone", async () => {
        const files = await client.createFiles();
        await files.call("CreateDirectory", host.path("folder"));
        await files.nextEvent("CreateDirectoryResultEvent");
        await files.upload(host.path("folder", "Grüße.txt"), "text", new Date("2001-02-03T04:05:06Z"));
        await files.call("List", host.root, true);
        const { Content } = await files.nextEvent("ListResultEvent");
        assert.deepEqual(Content.map((each) => each.constructor.name), ["ListItem", "ListItem"]);
        assert.deepEqual(Content.map((each) => [each.path, each.isDirectory]), [["folder", true], ["folder/Grüße.txt", false]]);
        assert.equal(Content[1].dateTime.toISOString(), "2001-02-03T04:05:06.000Z");
    });
});
