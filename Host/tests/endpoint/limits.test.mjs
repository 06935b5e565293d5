// Clients that ask for more than fits a message, and more than a host can hold. They get answers
// that say so, and everybody else goes on.

import assert from "node:assert/strict";
import { mkdirSync, writeFileSync } from "node:fs";
import { after, describe, it } from "node:test";
import { hasShadowMemory, memory, SteadyClient } from "./adversary.mjs";
import { eventTypes, hostUri, opcua, startHost, waitFor } from "./harness.mjs";

function fill(folder, count, length) {
    mkdirSync(folder);
    for (let i = 0; i < count; ++i) {
        writeFileSync(`${folder}/${String(i).padStart(length, "n")}`, "");
    }
}

const bounded = (maxMessageSize, maxChunkCount = 1_000) => ({
    options: { transportSettings: { maxMessageSize, maxChunkCount } },
});

/** Makes a subscription; returns its number. */
async function subscribe({ session }) {
    const { subscriptionId } = await session.createSubscription({
        requestedPublishingInterval: 10, requestedLifetimeCount: 100_000, requestedMaxKeepAliveCount: 1_000,
        maxNotificationsPerPublish: 0, publishingEnabled: true, priority: 0,
    });
    return subscriptionId;
}

/** Makes as many items for the events of a node as one call takes; returns the names of their statuses. */
async function monitor({ session }, { subscriptionId, nodeId, filter }) {
    const { results } = await session.createMonitoredItems({
        subscriptionId, timestampsToReturn: opcua.TimestampsToReturn.Neither,
        itemsToCreate: Array.from({ length: 100 }, (_, item) => ({
            itemToMonitor: { nodeId, attributeId: opcua.AttributeIds.EventNotifier },
            monitoringMode: opcua.MonitoringMode.Reporting,
            requestedParameters: { clientHandle: item, samplingInterval: 0, queueSize: 200_000, discardOldest: true, filter },
        })),
    });
    return results.map(({ statusCode }) => statusCode.name);
}

/** Follows the chunks that a client gets; returns the bytes and chunks of each message. */
function follow(client) {
    const messages = [];
    let current = { bytes: 0, chunks: 0 };
    client.opcua.on("receive_chunk", (chunk) => {
        if (chunk.toString("latin1", 0, 3) !== "MSG") {
            return;
        }
        current.bytes += chunk.length;
        ++current.chunks;
        if (chunk[3] === "F".charCodeAt(0)) {
            messages.push(current);
            current = { bytes: 0, chunks: 0 };
        }
    });
    return messages;
}

describe("Answers", () => {
    const entries = 6_000; // about 2 MB
    let host;
    after(() => host.stop());

    it("larger than what bounds a client's own messages arrive whole", async () => {
        host = await startHost({ flags: ["--max-message", "1MB", "--max-chunks", "20"] });
        fill(host.path("folder"), entries, 240);
        const files = await (await host.connect()).createFiles();
        await files.call("List", host.path("folder"), false);
        assert.equal((await files.nextEvent("ListResultEvent")).Content.length, entries);
        await files.client.close();
    });

    it("of listings asked for at once arrive whole, and in their order", async () => {
        const files = await (await host.connect()).createFiles();
        // Counted as they come in: the client decodes large ones so late that it hears small ones first.
        const types = [];
        files.client.opcua.on("receive_response", ({ notificationMessage }) => {
            for (const { events } of notificationMessage?.notificationData ?? []) {
                types.push(...(events ?? []).map(({ eventFields }) => eventFields[1].value.value));
            }
        });
        const count = 16;
        const calls = [];
        for (let i = 0; i < count; ++i) {
            calls.push(files.call("List", host.path("folder"), false));
            calls.push(files.call("Exists", host.root));
        }
        await Promise.all(calls);
        let whole = 0;
        for (let i = 0; i < 2 * count; ++i) {
            whole += (await files.nextEvent()).Content?.length === entries ? 1 : 0;
        }
        assert.equal(whole, count);
        const { ListResultEvent: listed, ExistsResultEvent: exists } = eventTypes;
        assert.deepEqual(types, Array.from({ length: 2 * count }, (_, i) => (i % 2 === 0 ? listed : exists).id));
        assert.ok(!host.log.includes("with empty fields"), host.log);
        await files.client.close();
    });

    for (const policy of ["None", "Basic256Sha256"]) {
        it(`too large for a client are Bad_ResponseTooLarge, and the next is as always (${policy})`, async () => {
            const client = await host.connect({ policy, ...bounded(9_000, 2) });
            const messages = follow(client);
            const readNames = (count) => client.session.read(
                Array.from({ length: count }, () => ({ nodeId: "i=2254", attributeId: opcua.AttributeIds.Value }))
            );
            for (let round = 0; round < 3; ++round) {
                await assert.rejects(readNames(1_000), /BadResponseTooLarge/);
                assert.equal((await readNames(10)).length, 10);
            }
            assert.ok(messages.length >= 6);
            for (const { bytes, chunks } of messages) {
                assert.ok(bytes <= 9_000 && chunks <= 2, `${bytes} bytes in ${chunks} chunks`);
            }
            assert.match(host.log, /BadResponseTooLarge instead/);
            await client.close();
        });

        it(`with many events are cut into what a client takes (${policy})`, async () => {
            const client = await host.connect({ policy, ...bounded(9_000, 2) });
            const files = await client.createFiles();
            const messages = follow(client);
            const count = 200;
            await Promise.all(Array.from({ length: count }, (_, i) => files.call("Exists", i % 3 === 0 ? host.root : host.path("missing"))));
            for (let i = 0; i < count; ++i) {
                assert.equal((await files.nextEvent("ExistsResultEvent")).Exist, i % 3 === 0, `result ${i}`);
            }
            for (const { bytes, chunks } of messages) {
                assert.ok(bytes <= 9_000 && chunks <= 2, `${bytes} bytes in ${chunks} chunks`);
            }
            await client.close();
        });
    }

    it("with one event that is too large come without its large fields, in their order", async () => {
        const client = await host.connect(bounded(1_000_000));
        const files = await client.createFiles();
        const shared = await client.files();
        for (const node of [files, shared]) {
            await node.call("Exists", host.root);
            await node.call("List", host.path("folder"), false);
            await node.call("Exists", host.path("missing"));
            assert.equal((await node.nextEvent("ExistsResultEvent")).Exist, true);
            const event = await node.nextEvent("ListResultEvent");
            assert.equal(event.Content, null);
            assert.equal(event.LimitExceeded, false);
            assert.equal((await node.nextEvent("ExistsResultEvent")).Exist, false);
        }
        assert.match(host.log, /gets an event of \d+ bytes with empty fields/);
        await client.close();
    });
});

describe("A host", () => {
    let host;
    let steady;
    after(() => host.stop());

    it("says how many operations it takes in a request, and refuses more", async () => {
        host = await startHost();
        steady = await SteadyClient.start(host);
        const client = await host.connect();
        const limits = {};
        for (const name of ["Read", "Write", "Browse", "RegisterNodes", "TranslateBrowsePathsToNodeIds", "NodeManagement", "MethodCall"]) {
            const result = await client.read(`i=${opcua.VariableIds[`Server_ServerCapabilities_OperationLimits_MaxNodesPer${name}`]}`);
            limits[name] = result.value.value;
            assert.ok(limits[name] > 0 && limits[name] <= 5_000, `${name}: ${limits[name]}`);
        }
        const items = await client.read(`i=${opcua.VariableIds.Server_ServerCapabilities_OperationLimits_MaxMonitoredItemsPerCall}`);
        assert.equal(items.value.value, 100);
        const read = Array.from({ length: 20_000 }, () => ({ nodeId: "i=2254", attributeId: opcua.AttributeIds.Value }));
        await assert.rejects(client.session.read(read), /BadTooManyOperations/);
        const browse = Array.from({ length: limits.Browse + 1 }, () => ({ nodeId: "i=84", resultMask: 63 }));
        await assert.rejects(client.session.browse(browse), /BadTooManyOperations/);
        await client.close();
    });

    it("has nothing so large that reading it again and again takes its memory", async () => {
        const client = await host.connect();
        const before = memory(host).most;
        for (const nodeId of ["i=7617", "i=8252", "i=2254", "i=2255"]) {
            const read = Array.from({ length: 1_000 }, () => ({ nodeId, attributeId: opcua.AttributeIds.Value }));
            await client.session.read(read);
            await steady.call(50);
        }
        if (!hasShadowMemory) {
            assert.ok(memory(host).most < before + 30, `${memory(host).most} MB after ${before}`);
        }
        await client.close();
    });

    it("checks only so many event filters of a session at once", { skip: process.env.TALVENSOR_SANITIZER && "time passes while they are checked" }, async () => {
        const client = await host.connect();
        const subscriptionId = await subscribe(client);
        const filter = opcua.constructEventFilter(Array(64).fill("EventId"));
        const names = await monitor(client, { subscriptionId, nodeId: "i=2253", filter });
        assert.equal(names[0], "Good");
        assert.equal(names.at(-1), "BadEventFilterInvalid");
        const other = await host.connect();
        assert.equal((await monitor(other, { subscriptionId: await subscribe(other), nodeId: "i=2253", filter }))[0], "Good");
        await other.close();
        await client.close();
    });

    it("keeps its memory, and answers others, when thousands of items hear one large listing", async (test) => {
        fill(host.path("folder"), 3_000, 100);
        const client = await host.connect();
        const nodeId = client.node(hostUri, "FileSystem");
        const content = client.selectClauses().clauses.filter(({ browsePath }) => browsePath[0].name === "Content");
        const filter = new opcua.EventFilter({ selectClauses: content });
        let made = 0;
        for (let i = 0; i < 4; ++i) {
            const subscriptionId = await subscribe(client);
            for (let call = 0; call < 10; ++call) {
                made += (await monitor(client, { subscriptionId, nodeId, filter })).filter((name) => name === "Good").length;
            }
        }
        assert.ok(made >= 3_900, `${made} items`);
        const before = memory(host).most;
        const good = await (await host.connect()).files();
        const answered = steady.calls;
        await good.call("List", host.path("folder"), false);
        const event = await steady.callDuring(good.nextEvent("ListResultEvent"), 200);
        assert.equal(event.Content.length, 3_000); // who hears it once has it whole
        await waitFor("the warning", () => host.log.includes(`${made} items hear it`));
        assert.ok(steady.calls >= answered + 200);
        test.diagnostic(`${before} MB before, ${memory(host).most} MB at most`);
        if (!hasShadowMemory) {
            assert.ok(memory(host).most < before + 150, `${memory(host).most} MB after ${before}`);
        }
        await good.client.close();
        await client.close();
    });
});
