// Subscriptions: the bounds of their parameters, and that they end with their session.

import assert from "node:assert/strict";
import { after, before, describe, it } from "node:test";
import { opcua, startHost, waitFor } from "./harness.mjs";

const currentSubscriptions = "i=2285"; // of the server's diagnostics

describe("A subscription", () => {
    let host;
    let watching;
    before(async () => {
        host = await startHost();
        watching = await host.connect();
    });
    after(() => host.stop());

    const count = async () => (await watching.read(currentSubscriptions)).value.value;
    const wanted = {
        requestedPublishingInterval: 3_600_000, requestedLifetimeCount: 1_000_000, requestedMaxKeepAliveCount: 100_000,
        maxNotificationsPerPublish: 0, publishingEnabled: true, priority: 0,
    };
    /** Makes one that the client's own machinery does not publish for. */
    async function make(client, more = {}) {
        const request = new opcua.CreateSubscriptionRequest({ ...wanted, ...more });
        return client.session.createSubscription(request);
    }

    it("lives no longer without its client than is reasonable", async () => {
        const client = await host.connect();
        const made = await make(client);
        assert.deepEqual(
            [made.revisedPublishingInterval, made.revisedLifetimeCount, made.revisedMaxKeepAliveCount],
            [10_000, 12_000, 100]);
    });

    it("that a session leaves behind ends with it, as often as one tries, and those of others stay", async () => {
        const before = await count();
        const staying = await host.connect();
        await make(staying);
        for (let round = 0; round < 3; ++round) {
            const leaving = await host.connect();
            for (let i = 0; i < 20; ++i) {
                const { subscriptionId } = await make(leaving, { requestedPublishingInterval: 10 * i });
                if (i === 0) {
                    // Sampled each time that the subscription is looked at.
                    await leaving.session.createMonitoredItems({
                        subscriptionId, timestampsToReturn: opcua.TimestampsToReturn.Neither,
                        itemsToCreate: Array(100).fill({
                            itemToMonitor: { nodeId: "i=2258", attributeId: opcua.AttributeIds.Value },
                            monitoringMode: opcua.MonitoringMode.Reporting,
                            requestedParameters: { clientHandle: 1, samplingInterval: -1, queueSize: 1, discardOldest: true },
                        }),
                    });
                }
            }
            await leaving.session.close(false);
            await leaving.close();
        }
        await waitFor("the subscriptions to end", async () => (await count()) === before + 1);
        const [kept] = await Promise.all([make(staying)]);
        assert.ok(kept.subscriptionId > 0);
        assert.equal(await count(), before + 2);
    });

    it("of another session cannot be taken over", async () => {
        const [owner, thief] = [await host.connect(), await host.connect()];
        const { subscriptionId } = await make(owner);
        const { results } = await thief.session.transferSubscriptions({ subscriptionIds: [subscriptionId], sendInitialValues: false });
        assert.equal(results[0].statusCode.name, "BadUserAccessDenied");
    });
});
