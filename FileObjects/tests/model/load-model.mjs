// Loads the published model of the file objects with node-opcua and compares what comes out with what
// is promised. Usage: node load-model.mjs MODEL. Exits with 1 on any difference.

import assert from "node:assert/strict";
import { webcrypto } from "node:crypto";
import { createRequire } from "node:module";

// node 18 has it, but not yet as a global, where node-opcua looks for it.
globalThis.crypto ??= webcrypto;

// The packages are those of the first module's model.
const require = createRequire(new URL("../../../FileSystem/FileSystem/tests/model/load-model.mjs", import.meta.url));

const uri = "urn:Talvensor:FileObjects";
const [boolean, uint64, uint32, byte, string] = ["i=1", "i=9", "i=7", "i=3", "i=12"];
const [byteString, utcTime] = ["i=15", "i=294"];
const results = [["statuses", uint32, 1], ["reasons", string, 1]];
const permissions = [["permissions", uint32]];
const time = [["time", utcTime]];

// Number, name, supertype, methods: number, name, inputs, outputs; an argument is a name, a data type
// and, for arrays, a value rank.
const objectTypes = [
    [1, "DirectoryType", "i=13353", [
        [1010, "GetSpace", [], [["total", uint64], ["free", uint64]]],
        [1020, "List", [["start", uint64], ["maximum", uint32]],
            [["names", string, 1], ["kinds", byte, 1], ["sizes", uint64, 1], ["times", utcTime, 1], ["next", uint64]]],
        [1030, "GetChecksum", [], [["checksum", byteString]]],
        [1040, "SetPermissions", permissions, []],
        [1050, "SetLastModifiedTime", time, []],
    ]],
    [2, "FileType", "i=11575", [
        [1060, "GetChecksum", [["start", uint64], ["length", uint64]], [["checksum", byteString], ["length", uint64]]],
        [1070, "SetPermissions", permissions, []],
        [1080, "SetLastModifiedTime", time, []],
    ]],
    [3, "FileTransferType", "i=15744", []],
    [4, "FileSystemType", "own;1", [
        [1090, "GetStates", [["paths", string, 1]],
            [["kinds", byte, 1], ["sizes", uint64, 1], ["times", utcTime, 1], ["permissions", uint32, 1],
                ["access", byte, 1], ...results]],
        [1100, "ListPath", [["path", string], ["start", uint64], ["maximum", uint32]],
            [["names", string, 1], ["kinds", byte, 1], ["sizes", uint64, 1], ["times", utcTime, 1],
                ["permissions", uint32, 1], ["next", uint64]]],
        [1110, "MovePaths", [["sources", string, 1], ["targets", string, 1], ["replaces", boolean]], results],
        [1120, "CopyPath", [["source", string], ["target", string], ["replaces", boolean]], []],
        [1130, "GetPathSpace", [["path", string]], [["total", uint64], ["free", uint64]]],
        [1140, "GetPathChecksum", [["path", string], ["start", uint64], ["length", uint64]],
            [["checksum", byteString], ["length", uint64]]],
        [1150, "SetPathPermissions", [["paths", string, 1], ["permissions", uint32, 1]], results],
    ]],
];

const { AddressSpace } = require("node-opcua-address-space");
const { generateAddressSpace } = require("node-opcua-address-space/nodeJS");
const { nodesets } = require("node-opcua-nodesets");

const addressSpace = AddressSpace.create();
await generateAddressSpace(addressSpace, [nodesets.standard, process.argv[2]]);
const index = addressSpace.getNamespaceIndex(uri);
const own = (number) => `ns=${index};i=${number}`;
const toId = (text) => (text.startsWith("own;") ? own(text.slice(4)) : `ns=0;${text}`);

function checkArguments(method, list, number, expected) {
    const property = method.getPropertyByName(list);
    assert.equal(property?.nodeId.toString(), expected.length > 0 ? own(number) : undefined);
    const found = property ? property.readValue().value.value : [];
    assert.deepEqual(
        found.map((argument) => [argument.name, argument.dataType.toString(), argument.valueRank]),
        expected.map(([name, type, rank = -1]) => [name, toId(type), rank]),
    );
    found.forEach((argument) => assert.ok(argument.description?.text, argument.name));
}

for (const [number, name, superType, methods] of objectTypes) {
    const type = addressSpace.findNode(own(number));
    assert.equal(type?.browseName.toString(), `${index}:${name}`);
    assert.equal(type.subtypeOf.toString(), toId(superType));
    assert.ok(type.description.text, name);
    assert.deepEqual(
        type.findReferencesAsObject("HasComponent", true).map((target) => target.nodeId.toString()),
        methods.map(([method]) => own(method)),
    );
    for (const [id, methodName, inputs, outputs] of methods) {
        const method = addressSpace.findNode(own(id));
        assert.equal(method.browseName.toString(), `${index}:${methodName}`);
        assert.equal(method.modellingRule, "Mandatory");
        checkArguments(method, "InputArguments", id + 1, inputs);
        checkArguments(method, "OutputArguments", id + 2, outputs);
    }
}

const event = addressSpace.findNode(own(5));
assert.equal(event.browseName.toString(), `${index}:TemporaryFileDroppedEvent`);
assert.equal(event.subtypeOf.toString(), toId("i=2041"));
assert.deepEqual(
    event.findReferencesAsObject("HasProperty", true).map(({ nodeId, browseName, dataType }) =>
        [nodeId.toString(), browseName.toString(), dataType.toString()]),
    [[own(2001), `${index}:FileHandle`, toId(uint32)], [own(2002), `${index}:Result`, toId(uint32)]],
);
assert.deepEqual(
    addressSpace.findNode(own(4)).findReferencesAsObject("GeneratesEvent", true).map(({ nodeId }) => nodeId.toString()),
    [own(5)],
);
addressSpace.dispose();
