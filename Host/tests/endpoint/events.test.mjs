// Events: clients hear all results of their requests, in order.

import assert from "node:assert/strict";
import { mkdirSync, writeFileSync } from "node:fs";
import { after, before, describe, it } from "node:test";
import {
    baseFields, eventTypes, fileSystemUri, hostUri, noTime, startHost, waitFor, within,
} from "./harness.mjs";

const eventCount = process.env.TALVENSOR_LONG === "1" ? 100_000 : 10_000;

const messages = {
    AckEvent: /^AckEvent: closing failed \(FileHandle 1, Result 3\)$/,
    ExistsResultEvent: /^ExistsResultEvent: Exist true$/,
    DeleteResultEvent: /^DeleteResultEvent$/,
    CreateDirectoryResultEvent: /^CreateDirectoryResultEvent$/,
    ListResultEvent: /^ListResultEvent: Content (1 entry|\d+ entries), LimitExceeded false$/,
};

const requests = {
    AckEvent: (files) => files.call("Close", 1),
    ExistsResultEvent: (files, host) => files.call("Exists", host.root),
    DeleteResultEvent: (files) => files.call("Delete", []),
    CreateDirectoryResultEvent: (files, host) => files.call("CreateDirectory", host.root),
    ListResultEvent: (files, host) => files.call("List", host.root, false),
};

describe("Events", () => {
    let host;
    before(async () => (host = await startHost()));
    after(() => host.stop());

    async function hasAllFields(files, sourceName) {
        const identifiers = new Set();
        for (const [type, request] of Object.entries(requests)) {
            const earliest = Date.now();
            await request(files, host);
            const event = await files.nextEvent(type);
            const own = eventTypes[type].fields;
            const others = Object.values(eventTypes).flatMap(({ fields }) => fields).filter((name) => !own.includes(name));
            for (const name of [...baseFields, ...own]) {
                assert.ok(event[name] !== null && event[name] !== undefined, `${type} has no ${name}`);
            }
            for (const name of others) {
                assert.equal(event[name], null, `${type} has a ${name}`);
            }
            assert.ok(event.EventId.length > 0);
            identifiers.add(event.EventId.toString("hex"));
            assert.equal(String(event.EventType), String(files.client.node(fileSystemUri, eventTypes[type].id)));
            assert.equal(String(event.SourceNode), String(files.nodeId));
            assert.equal(event.SourceName, sourceName);
            for (const name of ["Time", "ReceiveTime"]) {
                // The client's clock has whole milliseconds.
                const isNow = event[name].getTime() >= earliest - 1 && event[name].getTime() <= Date.now() + 1;
                assert.ok(isNow, `${name} of ${type}: ${event[name].toISOString()}`);
            }
            assert.match(event.Message.text, messages[type]);
            assert.equal(event.Severity, type === "AckEvent" ? 500 : 100); // a failure, here
        }
        assert.equal(identifiers.size, Object.keys(requests).length);
        assert.deepEqual(files.events, []);
    }

    it("of a shared file system have all fields", async () =>
        hasAllFields(await (await host.connect()).files(), "FileSystem"));

    it("of a session's own file system have all fields", async () =>
        hasAllFields(await (await host.connect()).createFiles(), "PrivateFileSystem"));

    it("of a shared file system are heard by all who subscribed, also above it", async () => {
        const [asking, listening] = [await host.connect(), await host.connect()];
        const files = await asking.files();
        const heard = { FileSystem: [], folder: [], Server: [] };
        await listening.subscribe(listening.node(hostUri, "FileSystem"), (event) => heard.FileSystem.push(event.type));
        await listening.subscribe(listening.folder, (event) => heard.folder.push(event.type));
        await listening.subscribe("i=2253", (event) => heard.Server.push(event.type));
        for (const request of Object.values(requests)) {
            await request(files, host);
        }
        const expected = Object.keys(requests);
        for (const [where, types] of Object.entries(heard)) {
            await waitFor(`all events at ${where}`, () => types.length >= expected.length);
            assert.deepEqual(types, expected, where);
        }
    });

    it("carry a listing of 61440 entries, and say where there were more", async () => {
        const limit = 61_440;
        const folder = host.path("many");
        mkdirSync(folder);
        for (let i = 0; i < limit; ++i) {
            writeFileSync(`${folder}/${i}`, "");
        }
        const files = await (await host.connect()).createFiles();
        const list = async () => {
            await files.call("List", folder, false);
            return files.nextEvent("ListResultEvent");
        };
        const full = await list();
        assert.equal(full.LimitExceeded, false);
        assert.equal(new Set(full.Content.map((entry) => entry.path)).size, limit);
        assert.ok(full.Content.every((entry) => !entry.isDirectory && Number(entry.path) < limit));

        writeFileSync(`${folder}/more`, "");
        const cut = await list();
        assert.equal(cut.LimitExceeded, true);
        assert.equal(cut.Content.length, limit);
    });

    it(`come all and in order, ${eventCount} of them, while calls go on`, async () => {
        const client = await host.connect();
        const files = await client.createFiles();
        const other = await (await host.connect()).createFiles();
        // An acknowledgement carries its request's number: the handle, which is not known.
        const progress = { isAsked: false };
        const asking = (async () => {
            const batch = 1_000;
            for (let first = 1; first <= eventCount; first += batch) {
                const numbers = Array.from({ length: batch }, (_, i) => first + i);
                const results = await client.session.call(
                    numbers.map((number) => ({
                        objectId: files.nodeId, methodId: files.method("Close"),
                        inputArguments: files.variants("Close", [number]),
                    }))
                );
                assert.ok(results.every(({ statusCode }) => statusCode.isGood()));
            }
            progress.isAsked = true;
        })();

        // The calls of another client are answered meanwhile, and their results come.
        const path = host.path("meanwhile");
        let calls = 0;
        while (!progress.isAsked || files.events.length < eventCount) {
            await other.upload(path, `text ${++calls}`, noTime);
            assert.deepEqual(other.events, []);
        }
        await within("the requests", asking);
        assert.deepEqual([...new Set(files.events.map((event) => event.type))], ["AckEvent"]);
        const numbers = files.events.map((event) => event.FileHandle);
        assert.equal(numbers.length, eventCount);
        assert.ok(numbers.every((number, i) => number === i + 1), "the order is not kept");
        assert.ok(calls >= 5, `only ${calls} calls in between`);
    });

    it("beyond a client's queue are lost visibly", async () => {
        const client = await host.connect();
        const nodeId = await client.createFileSystem();
        const types = [];
        const subscription = await client.subscribe(nodeId, (event) => types.push(event.type), { queueSize: 5 });
        await subscription.setPublishingMode(false);
        const calls = Array.from({ length: 50 }, (_, i) => ({
            objectId: nodeId, methodId: client.node(fileSystemUri, 1020), inputArguments: [{ dataType: "UInt32", value: i + 1 }],
        }));
        await client.session.call(calls);
        // It follows them in the same queue, so they have been raised when this is answered.
        const files = await client.files(nodeId);
        await files.barrier();
        await subscription.setPublishingMode(true);
        await waitFor("the overflow", () => types.includes("ns=0;i=3035")); // EventQueueOverflowEventType
        assert.ok(types.length <= 6, `${types.length} events`);
    });
});
