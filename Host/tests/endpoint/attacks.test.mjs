// Clients that ask for more than a host should give, while a well-behaved one goes on calling: all
// its calls succeed, each with its result, and afterwards the host has as many resources as before.

import assert from "node:assert/strict";
import { mkdirSync, writeFileSync } from "node:fs";
import { describe, it } from "node:test";
import { becomesWhole, holdings, RawClient, SteadyClient } from "./adversary.mjs";
import { opcua, opcuaTypes, startHost } from "./harness.mjs";

const { AttributeIds, FilterOperator, MonitoringMode, TimestampsToReturn } = opcua;
const user = { policy: "Basic256Sha256", user: "user" };
const calls = 300;

/** Attacks a new host beside a steady client, which calls until the attack is over. */
async function survives(attack, { users, login } = {}) {
    const flags = ["--grace", "200ms", "--trust-any-client"];
    const host = await startHost({ flags, users });
    try {
        const steady = await SteadyClient.start(host, login);
        const before = holdings(host);
        await steady.callDuring(attack(host), calls);
        await becomesWhole(host, before);
        await steady.call(calls);
        await host.stop();
    } finally {
        host.process.kill("SIGKILL");
        await Promise.allSettled(host.clients.map((client) => client.close()));
    }
}

/** Returns true if a request succeeds; the attack goes on when it is refused. */
const attempt = (request) => request.then(() => true, () => false);

const serverEvents = (queueSize, whereClause) => ({
    itemToMonitor: { nodeId: opcua.coerceNodeId("i=2253"), attributeId: AttributeIds.EventNotifier },
    monitoringMode: MonitoringMode.Reporting,
    requestedParameters: {
        clientHandle: 1, samplingInterval: 0, queueSize, discardOldest: true,
        filter: new opcua.EventFilter({ selectClauses: [{
            typeDefinitionId: opcua.coerceNodeId("i=2041"), browsePath: [{ name: "Message" }],
            attributeId: AttributeIds.Value,
        }], whereClause }),
    },
});

const subscribe = (session) => session.createSubscription({
    requestedPublishingInterval: 100, requestedLifetimeCount: 10_000, requestedMaxKeepAliveCount: 1_000,
    maxNotificationsPerPublish: 0, publishingEnabled: true, priority: 0,
});

const monitor = (session, subscriptionId, itemsToCreate) => attempt(session.createMonitoredItems(
    new opcuaTypes.CreateMonitoredItemsRequest({
        subscriptionId, timestampsToReturn: TimestampsToReturn.Neither, itemsToCreate,
    })));

describe("Calls succeed beside a client that", () => {
    it("creates sessions without end", () =>
        survives(async (host) => {
            for (let i = 0; i < 10; ++i) {
                const client = await RawClient.open(host);
                await attempt(client.createSessions(100)); // refused in the end: none of them logs in
                await client.end();
            }
        }));

    it("reads one value twenty thousand times in a request", () =>
        survives(async (host) => {
            const client = await host.connect();
            const node = { nodeId: opcua.coerceNodeId("i=2255"), attributeId: AttributeIds.Value };
            for (let i = 0; i < 5; ++i) {
                await attempt(client.session.read(Array(20_000).fill(node)));
            }
            await client.close();
        }));

    it("makes and removes event filters with conditions", () =>
        survives(async (host) => {
            const client = await host.connect();
            const operand = new opcuaTypes.SimpleAttributeOperand({
                typeDefinitionId: opcua.coerceNodeId("i=2041"), browsePath: [{ name: "LocalTime" }],
                attributeId: AttributeIds.Value,
            });
            const whereClause = { elements: [{ filterOperator: FilterOperator.IsNull, filterOperands: [operand] }] };
            for (let i = 0; i < 10; ++i) {
                const { subscriptionId } = await subscribe(client.session);
                await monitor(client.session, subscriptionId, Array(50).fill(serverEvents(10, whereClause)));
                await client.session.deleteSubscriptions({ subscriptionIds: [subscriptionId] });
            }
            await client.close();
        }));

    it("lists a large directory for thousands of items", () =>
        survives(async (host) => {
            mkdirSync(host.path("many"));
            for (let i = 0; i < 1_000; ++i) {
                writeFileSync(host.path("many", String(i)), "");
            }
            const client = await host.connect();
            const files = await client.files();
            const { subscriptionId } = await subscribe(client.session);
            for (let i = 0; i < 60; ++i) {
                await monitor(client.session, subscriptionId, Array(100).fill(serverEvents(1_000)));
            }
            for (let i = 0; i < 3; ++i) {
                await files.call("List", host.path("many"), false);
            }
            await files.barrier();
            await client.close();
        }));

    it("guesses its user's password", () =>
        survives(async (host) => {
            const guess = () => host.connect({ ...user, password: "a guess" });
            for (let i = 0; i < 5; ++i) {
                assert.deepEqual(await Promise.all([attempt(guess()), attempt(guess())]), [false, false]);
            }
            await Promise.all(host.clients.slice(1).map((client) => client.close()));
        }, { users: { user: "right" }, login: { ...user, password: "right" } }));
});
