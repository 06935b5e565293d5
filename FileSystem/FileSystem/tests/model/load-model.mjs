// Loads the published information model with node-opcua and compares what comes out with what is
// promised. Usage: node load-model.mjs MODEL. Exits with 1 on any difference.

import { webcrypto } from "node:crypto";
import { existsSync } from "node:fs";
import { createRequire } from "node:module";

// node 18 has it, but not yet as a global, where node-opcua looks for it.
globalThis.crypto ??= webcrypto;

const uri = "urn:Talvensor:FileSystem";

const types = {
    Boolean: "i=1",
    Byte: "i=3",
    UInt32: "i=7",
    UInt64: "i=9",
    String: "i=12",
    ByteString: "i=15",
    Structure: "i=22",
    Enumeration: "i=29",
    UtcTime: "i=294",
    OpenModeEnum: "own;33",
    ListItem: "own;50",
    ModeEnum: "own;51",
};

const path = ["path", types.String];
const fileHandle = ["fileHandle", types.UInt32];
const data = ["data", types.ByteString];
const dateTime = ["dateTime", types.UtcTime];
const permissions = ["permissions", types.ModeEnum];
const position = ["position", types.UInt64];

// Number, name, inputs, outputs; an argument is a name, a data type and, for arrays, a value rank.
const methods = [
    [1010, "Open", [path, ["mode", types.OpenModeEnum]], [fileHandle]],
    [1020, "Close", [fileHandle], []],
    [1030, "UploadFile", [path, ["content", types.ByteString], dateTime, permissions], [fileHandle]],
    [1040, "OpenWrite", [path, data], [fileHandle]],
    [1050, "Write", [fileHandle, data], []],
    [1060, "WriteClose", [fileHandle, data, dateTime, permissions], []],
    [1070, "CreateDirectory", [path], []],
    [1080, "Delete", [["paths", types.String, 1]], []],
    [1090, "List", [path, ["recursive", types.Boolean]], []],
    [1100, "Exists", [path], []],
    [1110, "Read", [fileHandle, ["length", types.UInt32]], [data]],
    [1120, "GetDateTime", [path], [dateTime]],
    [1130, "SetDateTime", [path, dateTime], []],
    [1140, "GetPosition", [fileHandle], [position]],
    [1150, "SetPosition", [fileHandle, position], []],
];

// Number, name, fields: number, name, data type and, for arrays, a value rank.
const events = [
    [54, "AckEvent", [[1200, "FileHandle", types.UInt32], [1201, "Result", types.UInt32]]],
    [64, "ExistsResultEvent", [[1210, "Exist", types.Boolean]]],
    [66, "DeleteResultEvent", []],
    [67, "CreateDirectoryResultEvent", []],
    [68, "ListResultEvent", [[1220, "Content", types.ListItem, 1], [1221, "LimitExceeded", types.Boolean]]],
];

const openModes = [
    ["TruncateWrite", 0],
    ["Read", 1],
    ["Append", 2],
    ["TruncateReadWrite", 3],
    ["ReadWrite", 4],
    ["AppendRead", 5],
];

const differences = [];

function expectEqual(what, actual, expected) {
    const [found, wanted] = [JSON.stringify(actual), JSON.stringify(expected)];
    if (found !== wanted) {
        differences.push(`${what}: ${found} instead of ${wanted}`);
    }
}

function expectText(what, localizedText) {
    if (!localizedText?.text) {
        differences.push(`${what} is empty`);
    }
}

const permissionFlags = [
    ["ReadOnly", 1],
    ["Executable", 2],
];

function require(packageName) {
    return createRequire(import.meta.url)(packageName);
}

class Check {
    constructor(addressSpace) {
        this.addressSpace = addressSpace;
        this.index = addressSpace.getNamespaceIndex(uri);
    }

    own(number) {
        return `ns=${this.index};i=${number}`;
    }

    // The identifier of one of `types`.
    id(type) {
        return type.startsWith("own;") ? this.own(type.slice(4)) : `ns=0;${type}`;
    }

    name(name) {
        return `${this.index}:${name}`;
    }

    find(number) {
        const node = this.addressSpace.findNode(this.own(number));
        if (!node) {
            throw new Error(`the model has no node ${number}`);
        }
        return node;
    }

    all() {
        expectEqual("namespaces", this.addressSpace.getNamespaceArray().filter((n) => n.namespaceUri === uri).length, 1);
        this.objectType();
        methods.forEach(([number, name, inputs, outputs]) => this.method(number, name, inputs, outputs));
        events.forEach(([number, name, fields]) => this.eventType(number, name, fields));
        this.openModes();
        this.permissionFlags();
        this.listItem();
        this.wireFormOfListItem();
    }

    node(node, what, name, superType) {
        expectEqual(`${what}: name`, node.browseName.toString(), this.name(name));
        expectEqual(`${what}: supertype`, node.subtypeOf?.toString(), superType);
        expectEqual(`${what}: abstract`, node.isAbstract, false);
        expectText(`${what}: description`, node.description);
    }

    objectType() {
        const type = this.find(1);
        this.node(type, "FileSystem", "FileSystem", "ns=0;i=58");
        expectEqual("FileSystem: methods", targets(type, "HasComponent"), methods.map(([number]) => this.own(number)));
        expectEqual("FileSystem: events", targets(type, "GeneratesEvent"), events.map(([number]) => this.own(number)));
    }

    method(number, name, inputs, outputs) {
        const method = this.find(number);
        expectEqual(`${name}: class`, method.nodeClass, 4);
        expectEqual(`${name}: name`, method.browseName.toString(), this.name(name));
        expectEqual(`${name}: rule`, method.modellingRule, "Mandatory"); // its description is dropped by node-opcua
        this.arguments(method, name, "InputArguments", number + 1, inputs);
        this.arguments(method, name, "OutputArguments", number + 2, outputs);
    }

    arguments(method, name, list, number, expected) {
        const property = method.getPropertyByName(list);
        expectEqual(`${name}: ${list}`, property?.nodeId.toString(), expected.length ? this.own(number) : undefined);
        const found = property ? property.readValue().value.value : [];
        expectEqual(
            `${name}: ${list}`,
            found.map((argument) => [argument.name, argument.dataType.toString(), argument.valueRank]),
            expected.map(([argument, type, rank = -1]) => [argument, this.id(type), rank]),
        );
        found.forEach((argument) => expectText(`${name}: description of ${argument.name}`, argument.description));
    }

    eventType(number, name, fields) {
        const type = this.find(number);
        this.node(type, name, name, "ns=0;i=2041");
        expectEqual(
            `${name}: fields`,
            type.getProperties().map((field) => [
                field.nodeId.toString(),
                field.browseName.toString(),
                field.dataType.toString(),
                field.valueRank,
                field.modellingRule,
            ]),
            fields.map(([id, field, dataType, rank = -1]) => [
                this.own(id),
                this.name(field),
                this.id(dataType),
                rank,
                "Mandatory",
            ]),
        );
        type.getProperties().forEach((field) => expectText(`${name}: description of ${field.browseName}`, field.description));
    }

    texts(number, what, owner, expected) {
        const property = this.find(number);
        expectEqual(`${what}: owner`, property.parent?.nodeId.toString(), this.own(owner));
        expectEqual(
            `${what}: texts`,
            property.readValue().value.value.map((value) => value.text ?? ""),
            expected,
        );
    }

    openModes() {
        const type = this.find(33);
        this.node(type, "OpenModeEnum", "OpenModeEnum", this.id(types.Enumeration));
        expectEqual(
            "OpenModeEnum: definition",
            type.getEnumDefinition().fields.map((field) => [field.name, Number(field.value[1])]),
            openModes,
        );
        this.texts(1300, "EnumStrings", 33, openModes.map(([name]) => name));
    }

    permissionFlags() {
        const type = this.find(51);
        this.node(type, "ModeEnum", "ModeEnum", this.id(types.Byte));
        expectEqual("ModeEnum: built-in type", type.basicDataType, 3);
        // node-opcua has no option sets in its address space, but keeps what the file declares.
        expectEqual("ModeEnum: option set", type.isOptionSetDataType, true);
        expectEqual(
            "ModeEnum: definition",
            type.declaredDefinitionFields.map((field) => [field.name, Number(field.value)]),
            permissionFlags,
        );
        this.texts(1310, "OptionSetValues", 51, ["", "ReadOnly", "Executable"]);
    }

    listItem() {
        const type = this.find(50);
        this.node(type, "ListItem", "ListItem", this.id(types.Structure));
        const definition = type.getStructureDefinition();
        expectEqual("ListItem: encoding", withoutUri(type.binaryEncodingNodeId), this.own(1320));
        expectEqual("ListItem: encoding of the definition", withoutUri(definition.defaultEncodingId), this.own(1320));
        expectEqual(
            "ListItem: members",
            definition.fields.map((field) => [field.name, field.dataType.toString(), field.valueRank, field.isOptional]),
            [
                ["path", this.id(types.String), -1, false],
                ["dateTime", this.id(types.UtcTime), -1, false],
                ["isDirectory", this.id(types.Boolean), -1, false],
            ],
        );
    }

    // Encoded by node-opcua from the model alone, compared with the bytes put together by hand.
    wireFormOfListItem() {
        const { BinaryStream } = require("node-opcua-binary-stream");
        const ListItem = this.addressSpace.getExtensionObjectConstructor(this.find(50));
        const seconds = 1_000_000_000;
        const item = new ListItem({ path: "sub/größe", dateTime: new Date(seconds * 1000), isDirectory: true });

        const stream = new BinaryStream(256);
        item.encode(stream);
        const encoded = stream.buffer.subarray(0, stream.length);
        expectEqual("ListItem: encoded", encoded.toString("hex"), encodeByHand(item.path, seconds, true).toString("hex"));

        const decoded = new ListItem();
        decoded.decode(new BinaryStream(Buffer.from(encoded)));
        expectEqual("ListItem: decoded", [decoded.path, decoded.dateTime.getTime(), decoded.isDirectory], [item.path, seconds * 1000, true]);
    }
}

// An expanded identifier repeats its namespace as a URI.
function withoutUri(nodeId) {
    return nodeId?.toString().replace(`;namespaceUri:${uri}`, "");
}

function targets(node, referenceType) {
    return node.findReferencesAsObject(referenceType, true).map((target) => target.nodeId.toString());
}

function encodeByHand(text, secondsSince1970, flag) {
    const characters = Buffer.from(text, "utf8");
    const length = Buffer.alloc(4);
    length.writeInt32LE(characters.length);
    const ticks = Buffer.alloc(8); // of 100 ns since 1601
    ticks.writeBigInt64LE((BigInt(secondsSince1970) + 11_644_473_600n) * 10_000_000n);
    return Buffer.concat([length, characters, ticks, Buffer.from([flag ? 1 : 0])]);
}

async function load(model) {
    const { AddressSpace } = require("node-opcua-address-space");
    const { generateAddressSpace } = require("node-opcua-address-space/nodeJS");
    const { nodesets } = require("node-opcua-nodesets");
    const addressSpace = AddressSpace.create();
    await generateAddressSpace(addressSpace, [nodesets.standard, model]);
    return addressSpace;
}

async function main(model) {
    if (!model) {
        throw new Error("usage: node load-model.mjs MODEL");
    }
    if (!existsSync(new URL("./node_modules", import.meta.url))) {
        throw new Error("the packages are not installed: run 'npm ci' beside this script");
    }
    const addressSpace = await load(model);
    new Check(addressSpace).all();
    addressSpace.dispose();
    if (differences.length > 0) {
        throw new Error(`${differences.length} differences:\n  ${differences.join("\n  ")}`);
    }
    console.log(`${model} is as promised: ${methods.length} methods, ${events.length} event types, 3 data types`);
}

main(process.argv[2]).catch((error) => {
    console.error(`The model does not pass: ${error.message}`);
    process.exitCode = 1;
});
