// A file system of a session's own is that session's alone.

import assert from "node:assert/strict";
import { after, before, beforeEach, describe, it } from "node:test";
import { CallError, fileSystemUri, hostUri, methods, opcua, startHost, waitFor } from "./harness.mjs";

const server = "i=2253";

describe("A session's own file system", () => {
    let host;
    let owner; // the session
    let own; // its file system
    let other; // another session
    before(async () => (host = await startHost({ flags: ["--grace", "1s"] })));
    after(() => host.stop());
    beforeEach(async () => {
        await Promise.all(host.clients.map((client) => client.close()));
        [owner, other] = [await host.connect(), await host.connect()];
        own = await owner.createFiles();
    });

    /** Makes every type of event. */
    const askAll = async (files) => {
        await files.call("Close", 1);
        await files.call("Exists", host.root);
        await files.call("Delete", []);
        await files.call("CreateDirectory", host.root);
        await files.call("List", host.root, false);
    };

    /** A list of what is heard at a node, which goes on growing. */
    const listen = async (client, nodeId) => {
        const heard = [];
        await client.subscribe(nodeId, (event) => heard.push(`${event.type} ${event.SourceName}`));
        return heard;
    };

    /** The private node's requests are done, then one of the shared node, which all above hear. */
    const askAllAndThenShared = async () => {
        await askAll(own);
        await own.barrier();
        const shared = await owner.files();
        await shared.call("Exists", host.root);
        await shared.nextEvent("ExistsResultEvent");
    };
    const onlyShared = ["ExistsResultEvent FileSystem"];

    for (const [where, find] of Object.entries({
        "the folder above": () => owner.folder,
        "the Objects folder": () => "i=85",
        "the Server object": () => server,
    })) {
        const canSubscribe = async (client) => (await client.read(find(), "EventNotifier")).value.value === 1;

        it(`is not heard by another session at ${where}`, async () => {
            if (!(await canSubscribe(other))) {
                await assert.rejects(other.subscribe(find(), () => {}));
                return;
            }
            const heard = await listen(other, find());
            await askAllAndThenShared();
            await waitFor("the shared node's event", () => heard.length > 0);
            assert.deepEqual(heard, onlyShared);
        });

        it(`is not heard by its own session at ${where} either`, async () => {
            if (!(await canSubscribe(owner))) {
                await assert.rejects(owner.subscribe(find(), () => {}));
                return;
            }
            const heard = await listen(owner, find());
            await askAllAndThenShared();
            await waitFor("the shared node's event", () => heard.length > 0);
            assert.deepEqual(heard, onlyShared);
        });
    }

    it("tells nothing to another session that knows its id", async () => {
        // The library lets everybody subscribe to every node; what is heard there is empty.
        const heard = [];
        const listening = other.subscribe(own.nodeId, (event) => heard.push(event));
        await listening.catch(() => assert.deepEqual(heard, []));
        const marker = await listen(other, server);
        await askAllAndThenShared();
        await waitFor("the shared node's event", () => marker.length > 0);
        const told = heard.map(({ type, ...fields }) => Object.values(fields).filter((value) => value !== null));
        assert.deepEqual(told, heard.map(() => []));
    });

    it("is heard by its own session at the node itself, each by itself", async () => {
        const second = await owner.createFiles();
        await second.call("Exists", host.root);
        const event = await second.nextEvent("ExistsResultEvent");
        assert.equal(String(event.SourceNode), String(second.nodeId));
        await own.call("Close", 1);
        await own.nextEvent("AckEvent");
        assert.deepEqual(second.events, []);
    });

    it("is called by its own session alone", async () => {
        for (const name of Object.keys(methods)) {
            const result = await other.callMethod(own.nodeId, own.method(name), []);
            assert.equal(result.statusCode.name, "BadNodeIdUnknown", name);
        }
    });

    it("is browsed by its own session alone", async () => {
        const ids = async (client, nodeId, options) =>
            (await client.browse(nodeId, options)).references.map((each) => String(each.nodeId));
        const { Both, Inverse } = opcua.BrowseDirection;
        const everything = { referenceTypeId: "References", browseDirection: Both };
        assert.ok((await ids(owner, own.nodeId, everything)).length > Object.keys(methods).length);
        assert.deepEqual(await ids(other, own.nodeId, everything), []);

        // Nothing leads to it, for nobody: its session has its id.
        const id = String(own.nodeId);
        for (const neighbour of await ids(owner, own.nodeId, everything)) {
            const found = await ids(other, neighbour, everything);
            assert.ok(found.length > 0, `nothing at ${neighbour}`);
            assert.ok(!found.includes(id), `found at ${neighbour}`);
        }
        const instances = await ids(other, other.node(fileSystemUri, 1), { ...everything, browseDirection: Inverse });
        assert.ok(instances.includes(String(other.node(hostUri, "FileSystem"))));
        assert.ok(!instances.includes(id));
    });

    it("is not found by its path either", async () => {
        const find = async (client) => {
            const path = opcua.makeBrowsePath("i=85", `/${client.folder.namespace}:FileSystems/${client.folder.namespace}:PrivateFileSystem`);
            const { targets } = await client.session.translateBrowsePath(path);
            return (targets ?? []).map((target) => String(target.targetId));
        };
        assert.ok(!(await find(other)).includes(String(own.nodeId)));
    });

    it("leaves nothing behind that others can read", async () => {
        await askAll(own);
        await own.barrier();
        // The library keeps the nodes of events, under numbers that it makes up from 50000 on.
        const found = [];
        for (const namespace of [0, 1]) {
            for (let first = 50_000; first < 66_000; first += 4_000) {
                const nodes = Array.from({ length: 4_000 }, (_, i) => ({
                    nodeId: `ns=${namespace};i=${first + i}`, attributeId: opcua.AttributeIds.Value,
                }));
                const values = await other.session.read(nodes);
                values.forEach(({ value }, i) => value?.value && found.push([nodes[i].nodeId.toString(), String(value.value)]));
            }
        }
        const diagnostics = await other.session.read(
            [2290, 3707, 3708].map((id) => ({ nodeId: `i=${id}`, attributeId: opcua.AttributeIds.Value }))
        );
        diagnostics.forEach(({ value }) => value?.value && found.push(["diagnostics", String(value.value)]));
        assert.deepEqual(found, []);
    });

    it("cannot be had by taking over the subscription", async () => {
        const { subscriptionId } = own.subscription;
        const response = await other.session.transferSubscriptions({ subscriptionIds: [subscriptionId], sendInitialValues: true });
        assert.notEqual(response.results[0].statusCode.name, "Good");
        await own.call("Close", 1);
        await own.nextEvent("AckEvent");
    });

    it("is one of four at most", async () => {
        for (let i = 0; i < 3; ++i) {
            await owner.createFileSystem();
        }
        const error = await owner.createFileSystem().catch((each) => each);
        assert.ok(error instanceof CallError);
        assert.equal(error.status, "BadResourceUnavailable");
        await other.createFileSystem(); // which has its own four
        await own.barrier();
    });

    it("goes with its session", async () => {
        const id = String(own.nodeId);
        const path = host.path("open");
        await own.call("OpenWrite", path, Buffer.from("text"));
        await own.barrier();
        assert.deepEqual(host.openFiles(), [path]);
        await owner.close();
        await waitFor("its files to be closed", () => host.openFiles().length === 0);

        assert.equal((await other.read(id, "BrowseName")).statusCode.name, "BadNodeIdUnknown");
        const result = await other.callMethod(id, other.node(fileSystemUri, methods.Exists.id));
        assert.equal(result.statusCode.name, "BadNodeIdUnknown");
        // A session's end makes room again, for any session.
        const next = await host.connect();
        for (let i = 0; i < 4; ++i) {
            assert.notEqual(String(await next.createFileSystem()), id);
        }
    });

    it("goes with a session that lost its connection", async () => {
        const id = own.nodeId;
        const method = own.method("Exists");
        owner.opcua.on("start_reconnection", () => assert.fail("the client comes back"));
        owner.opcua._secureChannel.forceConnectionBreak();
        await waitFor("the session's end", () => /Session of anonymous from \S+ ended .*\n(?![\s\S]*Session of anonymous from \S+ opened)/.test(host.log));
        assert.equal((await other.callMethod(id, method)).statusCode.name, "BadNodeIdUnknown");
    });
});
