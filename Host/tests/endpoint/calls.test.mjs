// Calls: the methods that clients may call, and answers that reach their callers alone.

import assert from "node:assert/strict";
import { closeSync, constants, existsSync, openSync, utimesSync, writeFileSync, writeSync } from "node:fs";
import { after, before, describe, it } from "node:test";
import { makeFifo } from "./adversary.mjs";
import { methods, opcua, opcuaTypes, startHost, waitFor, within } from "./harness.mjs";

const { AttributeIds, BrowseDirection, DataType, NodeClass, Variant, VariantArrayType } = opcua;

const root = "i=84";
const server = "i=2253";
const hasProperty = "i=46";
const getMonitoredItems = "i=11492";
const resendData = "i=12873";

const isOurs = (nodeId) => nodeId.namespace > 1;

/** Returns the references of the nodes, asked for a few nodes at a time, as every server allows. */
async function browseAll(session, nodeIds) {
    const found = [];
    for (let i = 0; i < nodeIds.length; i += 100) {
        const descriptions = nodeIds.slice(i, i + 100).map((nodeId) => ({
            nodeId, browseDirection: BrowseDirection.Both, referenceTypeId: "i=31", includeSubtypes: true,
            nodeClassMask: 0, resultMask: 63,
        }));
        const results = await session.browse(descriptions);
        for (const [k, result] of results.entries()) {
            const references = [...(result.references ?? [])];
            while (result.continuationPoint?.length > 0) {
                const next = await session.browseNext(result.continuationPoint, false);
                references.push(...(next.references ?? []));
                result.continuationPoint = next.continuationPoint;
            }
            found.push([descriptions[k].nodeId, references]);
        }
    }
    return found;
}

/** Returns all nodes below the root with their references, and the methods with their objects. */
async function walk(session) {
    const nodes = new Map();
    const calls = new Map();
    let next = [opcua.resolveNodeId(root)];
    while (next.length > 0) {
        next.forEach((nodeId) => nodes.set(String(nodeId), []));
        const further = new Map();
        for (const [nodeId, references] of await browseAll(session, next)) {
            nodes.set(String(nodeId), references.map((each) => `${each.referenceTypeId} ${each.isForward} ${each.nodeId}`).sort());
            for (const each of references) {
                if (each.nodeClass === NodeClass.Method && each.isForward) {
                    calls.set(`${nodeId} ${each.nodeId}`, { objectId: nodeId, methodId: each.nodeId });
                }
                if (!nodes.has(String(each.nodeId))) {
                    further.set(String(each.nodeId), each.nodeId);
                }
            }
        }
        next = [...further.values()];
    }
    return { nodes, calls: [...calls.values()] };
}

/** Returns a value that a method could be called with. */
function exampleOf(argument, nodeIds) {
    const kind = String(argument.dataType).startsWith("ns=0;i=") ? argument.dataType.value : 0;
    const examples = {
        1: [DataType.Boolean, true], 12: [DataType.String, "name"], 13: [DataType.DateTime, new Date()],
        15: [DataType.ByteString, Buffer.from("data")], 17: [DataType.NodeId, nodeIds[0]],
        20: [DataType.QualifiedName, { namespaceIndex: 0, name: "name" }],
    };
    const [dataType, value] = examples[kind] ?? [DataType.UInt32, 1];
    const isArray = argument.valueRank > 0;
    return new Variant({
        dataType, value: isArray ? [value] : value,
        arrayType: isArray ? VariantArrayType.Array : VariantArrayType.Scalar,
    });
}

/** Returns the inputs that a method declares, once for each node that they could name. */
async function inputsOf(session, methodId, nodeIds) {
    const { references } = await session.browse({
        nodeId: methodId, browseDirection: BrowseDirection.Forward, referenceTypeId: hasProperty, resultMask: 63,
    });
    const property = references?.find((each) => each.browseName.name === "InputArguments");
    const declared = property ? ((await session.read({ nodeId: property.nodeId, attributeId: AttributeIds.Value })).value.value ?? []) : [];
    const takesNodes = declared.some((each) => String(each.dataType) === "ns=0;i=17" && each.valueRank <= 0);
    return (takesNodes ? nodeIds : nodeIds.slice(0, 1)).map((nodeId) => declared.map((each) => exampleOf(each, [nodeId])));
}

const kinds = {
    "a session without a login": { host: {}, client: {} },
    "a user on an encrypted connection": {
        host: { users: { alice: "secret" }, flags: ["--trust-any-client"] },
        client: { policy: "Basic256Sha256", user: "alice", password: "secret" },
    },
};

for (const [who, kind] of Object.entries(kinds)) {
    describe(`For ${who}`, () => {
        let host;
        let client;
        before(async () => {
            host = await startHost(kind.host);
            client = await host.connect(kind.client);
        });
        after(() => host.stop());

        const call = async (objectId, methodId, inputs = []) =>
            (await client.callMethod(objectId, methodId, inputs)).statusCode.name;

        it("no method of the base model changes the address space", async () => {
            const { session } = client;
            const shared = client.node("urn:Talvensor:Host", "FileSystem");
            const earlier = await walk(session);
            const foreign = earlier.calls.filter(({ methodId }) => !isOurs(methodId));
            assert.ok(foreign.length > 50, `${foreign.length} methods`);
            assert.ok(earlier.nodes.has(String(shared)));
            for (const { objectId, methodId } of foreign) {
                for (const inputs of await inputsOf(session, methodId, [shared, client.folder])) {
                    const status = await call(objectId, methodId, inputs);
                    const isAllowed = String(objectId) === `ns=0;${server}` && [getMonitoredItems, resendData].includes(String(methodId).slice(5));
                    const expected = isAllowed ? ["BadSubscriptionIdInvalid"] : ["BadNotExecutable", "BadNodeClassInvalid", "BadMethodInvalid", "BadInternalError"];
                    assert.ok(expected.includes(status), `${methodId} of ${objectId}: ${status}`);
                }
            }
            // These have no way to their methods, or the way leads to another object.
            for (const [objectId, methodId] of [["i=14443", "i=14475"], ["i=14478", "i=16884"], ["i=14209", "i=14225"], ["i=14477", "i=16997"], ["i=14443", "i=16597"]]) {
                assert.notEqual(await call(objectId, methodId, [new Variant({ dataType: DataType.NodeId, value: shared })]), "Good");
            }
            const later = await walk(session);
            assert.deepEqual(later.nodes, earlier.nodes);
        });

        it("UserExecutable says which methods can be called", async () => {
            const { session } = client;
            const isCallable = async (nodeId) =>
                (await session.read({ nodeId, attributeId: AttributeIds.UserExecutable })).value.value;
            assert.equal(await isCallable(getMonitoredItems), true);
            assert.equal(await isCallable(resendData), true);
            assert.equal(await isCallable("i=14225"), false);
            assert.equal(await isCallable(client.node("urn:Talvensor:Host", 2)), true);
            assert.equal(await isCallable(client.node("urn:Talvensor:FileSystem", methods.Exists.id)), true);
        });

        it("GetMonitoredItems and ResendData work for a subscription of one's own, and for no other", async () => {
            const files = await client.files();
            const { subscriptionId } = files.subscription;
            const id = [new Variant({ dataType: DataType.UInt32, value: subscriptionId })];
            const result = await client.callMethod(server, getMonitoredItems, id);
            assert.equal(result.statusCode.name, "Good");
            assert.equal(result.outputArguments[0].value.length, 1);
            assert.equal(await call(server, resendData, id), "Good");
            const other = await host.connect(kind.client);
            for (const method of [getMonitoredItems, resendData]) {
                assert.equal((await other.callMethod(server, method, id)).statusCode.name, "BadUserAccessDenied");
            }
            await other.close();
        });
    });
}

describe("Behind calls that wait", () => {
    let host;
    before(async () => (host = await startHost({ flags: ["--grace", "1s"] })));
    after(() => host.stop());

    let pipes = 0;
    /** Makes a file system whose next calls wait until `release` is called. */
    const makeWaiting = async () => {
        const client = await host.connect();
        const files = await client.createFiles();
        const fifo = makeFifo(host.path(`fifo${++pipes}`));
        const writer = openSync(fifo, constants.O_RDWR | constants.O_NONBLOCK);
        const handle = await files.call("Open", fifo, 1);
        await files.barrier();
        const read = files.tryCall("Read", handle, 4).catch(() => {});
        const release = async () => {
            writeSync(writer, "data");
            await read;
        };
        return { client, files, writer, release, end: () => closeSync(writer) };
    };

    /** Sends one request that asks for the times of these files. */
    const ask = ({ client, files }, paths) => {
        const methodsToCall = paths.map((path) => ({
            objectId: files.nodeId, methodId: files.method("GetDateTime"), inputArguments: files.variants("GetDateTime", [path]),
        }));
        const request = new opcuaTypes.CallRequest({ methodsToCall });
        const answer = new Promise((resolve, reject) => {
            client.session.performMessageTransaction(request, (error, response) => (error ? reject(error) : resolve(response)));
        });
        return { request, answer };
    };

    const cancel = (client, { request }) =>
        new Promise((resolve, reject) => {
            const { requestHandle } = request.requestHeader;
            const cancelling = new opcuaTypes.CancelRequest({ requestHandle });
            client.session.performMessageTransaction(cancelling, (error, response) => (error ? reject(error) : resolve(response)));
        });

    const [requests, callsEach, rounds] = [8, 100, 3];
    /** Makes files with a time of their own each. */
    const makeFiles = (name, first) =>
        Array.from({ length: callsEach }, (_, i) => {
            const path = host.path(`${name}${i}`);
            writeFileSync(path, "");
            utimesSync(path, first + i, first + i);
            return path;
        });
    const timesOf = ({ results }) => results.map((each) => each.outputArguments?.[0]?.value.getTime() / 1000);

    it("everybody gets the answers of his own calls, whoever else cancels and leaves", async () => {
        const [firstOfVictim, firstOfOther] = [1_000_000, 2_000_000];
        const [mine, others] = [makeFiles("mine", firstOfVictim), makeFiles("others", firstOfOther)];
        const expected = mine.map((_, i) => firstOfVictim + i);
        for (let round = 0; round < rounds; ++round) {
            const [victim, other] = [await makeWaiting(), await makeWaiting()];
            const cancelled = Array.from({ length: requests }, () => ask(other, others));
            const failures = cancelled.map(({ answer }) => answer.then(timesOf, (error) => error));
            for (const each of cancelled) {
                const { cancelCount } = await cancel(other.client, each);
                assert.equal(cancelCount, 1);
            }
            const asked = Array.from({ length: requests }, () => ask(victim, mine));
            await victim.client.read("i=2258"); // the host has read the calls before this
            await other.release();
            await other.files.barrier(); // behind all cancelled calls
            await victim.release();
            for (const { answer } of asked) {
                assert.deepEqual(timesOf(await within("an answer", answer)), expected);
            }
            for (const failure of await Promise.all(failures)) {
                assert.ok(failure instanceof Error, `${failure}`);
            }
            [victim, other].forEach(({ end }) => end());
            await Promise.all([victim.client.close(), other.client.close()]);
        }
    });

    it("a session that ends with calls in flight leaves no answers to others", async () => {
        const [mine, others] = [makeFiles("mine", 3_000_000), makeFiles("others", 4_000_000)];
        const [victim, other] = [await makeWaiting(), await makeWaiting()];
        const left = Array.from({ length: requests }, () => ask(other, others).answer.catch(() => {}));
        await other.client.read("i=2258");
        await other.client.close();
        const asked = Array.from({ length: requests }, () => ask(victim, mine));
        await victim.client.read("i=2258");
        other.end(); // its read ends, since nobody can write any more
        await victim.release();
        for (const { answer } of asked) {
            assert.deepEqual(timesOf(await within("an answer", answer)), mine.map((_, i) => 3_000_000 + i));
        }
        await Promise.all(left);
        victim.end();
        await victim.client.close();
    });

    it("a session has no more in flight by moving to further connections", async () => {
        const waiting = await makeWaiting();
        const connections = 15;
        const paths = makeFiles("moved", 5_000_000);
        const many = Array.from({ length: 9 }, () => paths).flat();
        for (let i = 0; i < connections; ++i) {
            const next = await host.connect({ session: false });
            await within("the session to move", next.opcua.reactivateSession(waiting.client.session));
            [many, many].forEach((each) => ask(waiting, each).answer.catch(() => {}));
        }
        // This one is answered after everything that the host has taken.
        waiting.files.call("CreateDirectory", host.path("last")).catch(() => {});
        writeSync(waiting.writer, "data");
        await waitFor("the last call", () => existsSync(host.path("last")));
        const before = host.log.length;
        await Promise.allSettled(host.clients.map((client) => client.opcua?.disconnect()));
        const ended = /Session of anonymous from \S+ ended after \S+ s, (\d+) calls/;
        const found = await waitFor("the session to end", () => ended.exec(host.log.slice(before)));
        assert.ok(Number(found[1]) < 2 * many.length + 2_000, `${found[1]} calls were taken`);
        waiting.end();
    });
});
