// Several modules in one host.

import assert from "node:assert/strict";
import { after, before, describe, it } from "node:test";
import { fileSystemUri, noTime, programs, startHost } from "./harness.mjs";

const exampleModel = programs.exampleModule.replace(/lib([^/]*)\.so$/, "$1.NodeSet2.xml");

/** Returns the names of the host's objects, without those of every server. */
async function browseObjects(client) {
    const { references } = await client.browse("i=85");
    return references.filter((each) => each.nodeId.namespace > 1).map((each) => each.browseName.name).sort();
}

describe("A host with two modules", () => {
    let host;
    let client;
    before(async () => {
        host = await startHost({ flags: ["--module", programs.exampleModule, "--model", exampleModel] });
        client = await host.connect();
    });
    after(() => host.stop());

    it("has an object of the second one's type, whose method answers", async () => {
        assert.deepEqual(await browseObjects(client), ["FileSystems", "Greeter"]);
        assert.equal(await client.greet("Ada"), "Hello, Ada!");
    });

    it("refuses a wrong argument for it", async () => {
        const uri = "urn:Example:Greeter";
        const result = await client.callMethod(client.node(uri, "Greeter"), client.node(uri, 2));
        assert.equal(result.statusCode.name, "BadArgumentsMissing");
    });

    it("makes nothing but file systems for sessions, and serves them", async () => {
        const own = await client.createFileSystem();
        const type = await client.browse(own, { referenceTypeId: "HasTypeDefinition" });
        assert.equal(String(type.references[0].nodeId), String(client.node(fileSystemUri, 1)));
        await (await client.createFiles()).upload(host.path("file"), Buffer.from("content"), noTime);
    });
});

describe("A host with another module alone", () => {
    it("has no file systems", async () => {
        const host = await startHost({
            program: programs.host,
            flags: ["--module", programs.exampleModule, "--model", exampleModel],
        });
        after(() => host.stop());
        const client = await host.connect();
        assert.equal(await client.greet("Grace"), "Hello, Grace!");
        assert.deepEqual(await browseObjects(client), ["Greeter"]);
    });
});

describe("A host with the installed modules", () => {
    /** Returns the objects of a host without --module, those of every server included. */
    async function startAndBrowse(...flags) {
        const host = await startHost({ program: programs.host, flags });
        after(() => host.stop());
        const { references } = await (await host.connect()).browse("i=85");
        return references.map((each) => String(each.browseName));
    }

    it("has file systems and the standard's file objects", async () => {
        const objects = await startAndBrowse();
        assert.ok(objects.includes("FileSystem"), objects.join());
        assert.ok(objects.some((name) => name.endsWith(":FileSystems")), objects.join());
    });

    it("leaves the file objects out if told to", async () => {
        const objects = await startAndBrowse("--no-file-objects");
        assert.ok(!objects.includes("FileSystem"), objects.join());
        assert.ok(objects.some((name) => name.endsWith(":FileSystems")), objects.join());
    });
});
