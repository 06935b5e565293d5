// A file system of a session's own is that session's alone.

import assert from "node:assert/strict";
import { after, before, beforeEach, describe, it } from "node:test";
import { CallError, cannotInspect, fileSystemUri, hostUri, methods, opcua, opcuaTypes, startHost, waitFor, within } from "./harness.mjs";

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

    /** Returns the list of events heard at a node, which goes on growing. */
    const listen = async (client, nodeId) => {
        const heard = [];
        await client.subscribe(nodeId, (event) => heard.push(`${event.type} ${event.SourceName}`));
        return heard;
    };

    /** Waits for the private node's requests, then for one of the shared node, which all above hear. */
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

    /** Returns the answers of services about a node, with "it" in place of its identifier. */
    const askOfEveryService = async (client, nodeId) => {
        const { session } = client;
        const perform = (request) =>
            new Promise((resolve, reject) =>
                session.performMessageTransaction(request, (error, response) => (error ? resolve(error.message) : resolve(response)))
            );
        const { namespace } = client.folder;
        const answers = {};
        const allAttributes = Array.from({ length: 27 }, (_, i) => i + 1);
        answers.read = await session.read(allAttributes.map((attributeId) => ({ nodeId, attributeId })));
        answers.read = answers.read.map(({ statusCode, value }) => [statusCode.name, value]);
        for (const browseDirection of [0, 1, 2]) {
            const { statusCode, references } = await session.browse({
                nodeId, browseDirection, includeSubtypes: true, referenceTypeId: "i=31", resultMask: 0,
            });
            answers[`browse ${browseDirection}`] = [statusCode.name, (references ?? []).length];
        }
        const { statusCode } = await session.translateBrowsePath(opcua.makeBrowsePath(nodeId, `/${namespace}:Exists`));
        answers.translate = statusCode.name;
        answers.call = (await client.callMethod(nodeId, client.node(fileSystemUri, methods.Exists.id))).statusCode.name;
        answers["call it"] = (await client.callMethod(client.folder, nodeId)).statusCode.name;
        const subscription = await session.createSubscription2({ requestedPublishingInterval: 1_000 });
        const items = new opcuaTypes.CreateMonitoredItemsRequest({
            subscriptionId: subscription.subscriptionId,
            timestampsToReturn: opcua.TimestampsToReturn.Neither,
            itemsToCreate: allAttributes.map((attributeId) => ({
                itemToMonitor: { nodeId, attributeId }, monitoringMode: opcua.MonitoringMode.Reporting,
                requestedParameters: {
                    clientHandle: attributeId, samplingInterval: 0, queueSize: 1,
                    filter: attributeId === 12 ? new opcua.EventFilter({ selectClauses: client.selectClauses().clauses }) : null,
                },
            })),
        });
        answers.monitor = (await perform(items)).results.map((each) => each.statusCode.name);
        await subscription.terminate();
        answers.register = (await session.registerNodes([nodeId])).map(String);
        answers.write = allAttributes.map((attributeId) => ({ nodeId, attributeId, value: { value: { dataType: "UInt32", value: 1 } } }));
        answers.write = (await session.write(answers.write)).map((each) => each.name);
        const references = { AddReferences: "referencesToAdd", DeleteReferences: "referencesToDelete" };
        for (const [service, name] of Object.entries(references)) {
            const reference = (sourceNodeId, targetNodeId) => ({ sourceNodeId, targetNodeId, referenceTypeId: "i=35", isForward: true, targetNodeClass: 1 });
            const pairs = [reference(nodeId, "i=85"), reference("i=85", nodeId)];
            const response = await perform(new opcuaTypes[`${service}Request`]({ [name]: pairs }));
            answers[service] = response.results?.map((each) => each.name) ?? String(response);
        }
        const add = (parentNodeId, requestedNewNodeId) => ({
            parentNodeId, requestedNewNodeId, referenceTypeId: "i=35", browseName: { name: "x" }, nodeClass: 1,
            typeDefinition: "i=58", nodeAttributes: new opcuaTypes.ObjectAttributes({}),
        });
        const added = await perform(new opcuaTypes.AddNodesRequest({ nodesToAdd: [add(nodeId, null), add("i=85", nodeId)] }));
        answers.add = added.results?.map((each) => each.statusCode.name) ?? String(added);
        const deleted = await perform(new opcuaTypes.DeleteNodesRequest({ nodesToDelete: [{ nodeId, deleteTargetReferences: true }] }));
        answers.delete = deleted.results?.map((each) => each.name) ?? String(deleted);
        return JSON.parse(JSON.stringify(answers).replaceAll(String(nodeId), "it"));
    };

    it("is for others as if it were not there, in every service", async () => {
        const missing = opcua.coerceNodeId(String(own.nodeId).replace(/g=.*/, "g=12345678-1234-1234-1234-123456789012"));
        const told = await askOfEveryService(other, own.nodeId);
        assert.deepEqual(told, await askOfEveryService(other, missing));
        assert.ok(told.read.every(([status]) => status === "BadNodeIdUnknown"), told.read);
        assert.ok(told.monitor.every((status) => status === "BadNodeIdUnknown"), told.monitor);
        await own.call("Close", 1);
        await own.nextEvent("AckEvent");
    });

    /** Returns the events and keep-alives, in lists that go on growing, of a subscription with an interval of ten seconds. */
    const listenSeldom = async (client, nodeId) => {
        const subscription = await client.session.createSubscription2({
            requestedPublishingInterval: 10_000, requestedLifetimeCount: 12_000, requestedMaxKeepAliveCount: 1,
            maxNotificationsPerPublish: 0, publishingEnabled: true,
        });
        const lists = { heard: [], keepAlives: [] };
        subscription.on("keepalive", () => lists.keepAlives.push("keep-alive"));
        const selected = client.selectClauses();
        const item = await subscription.monitor(
            { nodeId, attributeId: opcua.AttributeIds.EventNotifier },
            { samplingInterval: 0, queueSize: 100, discardOldest: true, filter: new opcua.EventFilter({ selectClauses: selected.clauses }) },
            opcua.TimestampsToReturn.Neither, opcua.MonitoringMode.Reporting
        );
        item.on("changed", (values) => lists.heard.push(client.toEvent(selected.names, values).type));
        return lists;
    };

    it("wakes no other session by its events", async () => {
        const { heard, keepAlives } = await listenSeldom(other, server);
        for (let i = 1; i <= 300; ++i) {
            await own.call("Close", i);
            await own.nextEvent("AckEvent");
        }
        // Its own events still come at once.
        const shared = await owner.files();
        await shared.call("Exists", host.root);
        await waitFor("the shared node's event", () => heard.length > 0);
        assert.deepEqual(heard, ["ExistsResultEvent"]);
        // One every ten seconds, whatever others do; each look in vain would be one more.
        assert.ok(keepAlives.length < 15, `${keepAlives.length} keep-alives`);
    });

    it("is heard at once after its session has moved to another connection", async () => {
        const { heard } = await listenSeldom(owner, own.nodeId);
        const next = await host.connect({ session: false });
        await next.opcua.reactivateSession(owner.session);
        const callAndHear = async () => {
            for (let i = 1; i <= 100; ++i) {
                await own.call("Close", i);
                await waitFor("the event", () => heard.length === i);
            }
        };
        await within("events that do not wait for the interval", callAndHear());
        await next.close();
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

        // For its session it stands below the folder, for others nothing leads to it.
        const id = String(own.nodeId);
        assert.ok((await ids(owner, owner.folder)).includes(id));
        for (const neighbour of await ids(owner, own.nodeId, everything)) {
            for (const resultMask of [0, 63]) {
                const found = await ids(other, neighbour, { ...everything, resultMask });
                assert.ok(found.length > 0, `nothing at ${neighbour}`);
                assert.ok(!found.includes(id), `found at ${neighbour}`);
            }
        }
        const instances = await ids(other, other.node(fileSystemUri, 1), { ...everything, browseDirection: Inverse });
        assert.ok(instances.includes(String(other.node(hostUri, "FileSystem"))));
        assert.ok(!instances.includes(id));
    });

    it("is found by its path by its own session alone", async () => {
        const { namespace } = owner.folder;
        const index = owner.namespaces.indexOf(fileSystemUri);
        const find = async (client, path) => {
            const { targets } = await client.session.translateBrowsePath(opcua.makeBrowsePath("i=85", path));
            return (targets ?? []).map((target) => String(target.targetId));
        };
        const path = `/${namespace}:FileSystems/${namespace}:PrivateFileSystem`;
        assert.deepEqual(await find(owner, path), [String(own.nodeId)]);
        assert.deepEqual(await find(other, path), []);
        assert.equal((await find(owner, `${path}/${index}:Exists`)).length, 1);
        assert.deepEqual(await find(other, `${path}/${index}:Exists`), []);
    });

    it("is paged over by others", async () => {
        for (let i = 0; i < 3; ++i) {
            await owner.createFileSystem();
        }
        const page = async (client) => {
            const found = [];
            let result = await client.session.browse({ nodeId: client.folder, browseDirection: 0, referenceTypeId: "i=33", includeSubtypes: true, resultMask: 63, requestedMaxReferencesPerNode: 1 });
            for (;;) {
                found.push(...(result.references ?? []).map((each) => each.browseName.name));
                if (!(result.continuationPoint?.length > 0)) {
                    return found.sort();
                }
                result = await client.session.browseNext(result.continuationPoint, false);
            }
        };
        const paged = { owner: await page(owner), other: await page(other) };
        assert.equal(paged.owner.filter((name) => name === "PrivateFileSystem").length, 4);
        assert.deepEqual(paged.other, paged.owner.filter((name) => name !== "PrivateFileSystem"));
    });

    it("leaves nothing behind that others can read", async () => {
        await askAll(own);
        await own.barrier();
        // The host keeps the nodes of events, and numbers them from 2^31 on.
        const found = [];
        let nodesOfEvents = 0;
        const firstOfHost = 2 ** 31;
        for (const namespace of [0, 1]) {
            for (const first of [firstOfHost, 50_000, 54_000, 58_000, 62_000]) {
                const nodes = Array.from({ length: 4_000 }, (_, i) => ({
                    nodeId: `ns=${namespace};i=${first + i}`, attributeId: opcua.AttributeIds.Value,
                }));
                const values = await other.session.read(nodes);
                values.forEach(({ value }, i) => value?.value && found.push([nodes[i].nodeId.toString(), String(value.value)]));
                nodesOfEvents += values.filter(({ statusCode }) => statusCode.name !== "BadNodeIdUnknown").length;
            }
        }
        assert.ok(nodesOfEvents > 0, "there are no nodes of events where they were looked for");
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

    it("goes with its session", { skip: cannotInspect }, async () => {
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

describe("A session that is ended for another's place", () => {
    it("takes its own file system with it", async () => {
        const host = await startHost({ flags: ["--max-sessions", "2", "--grace", "1min"] });
        const owner = await host.connect();
        const own = await owner.createFiles();
        await own.call("Close", 1);
        await own.nextEvent("AckEvent");
        owner.opcua.on("start_reconnection", () => owner.opcua.disconnect().catch(() => {}));
        owner.opcua._secureChannel.forceConnectionBreak();
        await host.connect();
        // Its place is needed while another's message is handled.
        const connect = () => host.connect().catch(() => undefined);
        const next = await waitFor("a place", connect);
        await waitFor("the session's end", () => /ends early/.test(host.log));
        assert.equal((await next.read(own.nodeId, "NodeClass")).statusCode.name, "BadNodeIdUnknown");
        const files = await next.createFiles();
        for (let i = 1; i <= 50; ++i) {
            await files.call("Close", i);
            assert.equal((await files.nextEvent("AckEvent")).FileHandle, i);
        }
        await host.stop();
    });
});
