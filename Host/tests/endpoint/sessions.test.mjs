// Sessions belong to their clients, and no client keeps others from having one.

import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { after, before, describe, it } from "node:test";
import { anonymous, becomesWhole, hasShadowMemory, holdings, memory, RawClient, startHostWithoutThread } from "./adversary.mjs";
import { opcua, programs, startHost, waitFor } from "./harness.mjs";

const sessionsSummary = "i=3706";

describe("A session", () => {
    let host;
    let own;
    let other;
    before(async () => {
        host = await startHost();
        [own, other] = [await host.connect(), await host.connect()];
    });
    after(() => host.stop());

    it("has an identifier and a token that nobody can compute", () => {
        // The OPC UA library draws them with the program's generator and not with its own.
        const options = { env: { ...process.env, LD_DEBUG: "bindings", LD_BIND_NOW: "1" }, encoding: "utf8", maxBuffer: 100_000_000 };
        const { stderr } = spawnSync(programs.host, ["--version"], options);
        for (const name of ["UA_Guid_random", "UA_UInt32_random"]) {
            const bindings = stderr.split("\n").filter((line) => line.includes(`\`${name}'`) && line.includes("open62541"));
            assert.ok(bindings.length > 0, `nobody uses ${name}`);
            for (const line of bindings) {
                assert.match(line, /binding file \S*open62541\S* \[0\] to \S*talvensor-host \[0\]/);
            }
        }
    });

    it("is not found by browsing, by its name, or by its identifier", async () => {
        const { references } = await other.browse(sessionsSummary, { referenceTypeId: "References" });
        const seen = references.map((each) => `${each.nodeId} ${each.browseName} ${each.displayName.text}`).join("\n");
        assert.ok(references.length > 0);
        for (const { session } of [own, other]) {
            assert.ok(!seen.includes(String(session.sessionId)) && !seen.includes(session.name), seen);
            for (const attribute of ["BrowseName", "DisplayName", "NodeClass"]) {
                const { statusCode } = await other.read(session.sessionId, attribute);
                assert.equal(statusCode.name, "BadNodeIdUnknown");
            }
            const path = opcua.makeBrowsePath(sessionsSummary, `/0:${session.name}`);
            assert.deepEqual((await other.session.translateBrowsePath(path)).targets ?? [], []);
        }
    });

    it("is in no diagnostics that clients can read", async () => {
        for (const array of ["i=3707", "i=3708", "i=2290"]) {
            const { statusCode, value } = await other.read(array);
            assert.ok(!statusCode.isGood() && !value?.value, `${array}: ${statusCode}`);
        }
    });
});

describe("Sessions that nobody activates", () => {
    it("keep no place from others, however fast they are made", async () => {
        const host = await startHost({ flags: ["--max-sessions", "5"] });
        try {
            const strangers = await Promise.all(Array.from({ length: 4 }, () => RawClient.open(host)));
            let made = 0;
            for (let round = 0; round < 3; ++round) {
                const creating = strangers.map((each) => each.createSessions(100));
                const client = await host.connect(); // throws when there is no place
                for (const answers of await Promise.all(creating)) {
                    made += answers.filter(({ status }) => status === 0).length;
                }
                await client.close();
            }
            assert.equal(made, 3 * 4 * 100);
            await Promise.all(strangers.map((each) => each.end()));
        } finally {
            await host.stop();
        }
    });

    it("are one at a time on a connection: the last one can be activated", async () => {
        const host = await startHost();
        try {
            const client = await RawClient.open(host);
            const sessions = await client.createSessions(3);
            assert.equal(new Set(sessions.map(({ token }) => token.toString("hex"))).size, 3);
            assert.notEqual(await client.activateSession(sessions[0]), 0);
            assert.notEqual(await client.activateSession(sessions[1]), 0);
            assert.equal(await client.activateSession(sessions[2]), 0);
            await client.end();
        } finally {
            await host.stop();
        }
    });

    it("take no memory, whatever names their clients give them", { skip: hasShadowMemory }, async () => {
        const host = await startHost();
        try {
            const clients = await Promise.all(Array.from({ length: 10 }, () => host.connect()));
            const before = memory(host).now;
            for (const client of clients) {
                const request = new opcua.CreateSessionRequest({
                    clientDescription: { applicationUri: "urn:test" }, endpointUrl: host.url,
                    sessionName: "n".repeat(15_000_000), requestedSessionTimeout: 600_000,
                });
                await new Promise((resolve, reject) =>
                    client.opcua.performMessageTransaction(request, (error) => (error ? reject(error) : resolve()))
                );
            }
            await clients[0].read("i=2255");
            assert.ok(memory(host).most - before < 100, `${before} MB, then ${memory(host).most} MB at most`);
        } finally {
            await host.stop();
        }
    });
});

describe("Sessions that lost their connection", () => {
    const drop = async (host) => {
        const client = await RawClient.open(host);
        assert.equal(await client.activateSession(await client.createSession()), 0);
        await client.end();
    };

    it("make room when their places are needed, and those of connected clients stay", async () => {
        const host = await startHost({ flags: ["--max-sessions", "5", "--grace", "600s"] });
        try {
            const stays = await (await host.connect()).createFiles();
            for (let i = 0; i < 30; ++i) {
                await drop(host);
            }
            const [first, second] = [await host.connect(), await host.connect()];
            await stays.barrier();
            assert.match(host.log, /which lost its connection, ends early: its place is needed/);

            // All are connected: none ends for another one.
            await Promise.all([host.connect(), host.connect()]);
            await assert.rejects(host.connect(), /BadTooManySessions/);
            await stays.barrier();
            await Promise.all([first, second].map((client) => client.read("i=2255")));
        } finally {
            await host.stop();
        }
    });
});

describe("A host that gets no thread", () => {
    /** Runs two clients, each with a file system of its own; returns the failures. */
    const use = async (host) => {
        const errors = [];
        for (let i = 0; i < 2; ++i) {
            try {
                const files = await (await host.connect()).createFiles();
                await files.barrier();
            } catch (error) {
                errors.push(error.status ?? String(error.message));
            }
        }
        await Promise.all(host.clients.map((client) => client.close()));
        return errors;
    };

    it("says so, whichever it is, and gives back what it took for it", { skip: process.env.TALVENSOR_SANITIZER && "its own functions stand first" }, async (test) => {
        const isHit = (host) => host.log.includes("A thread is refused");
        const told = [];
        for (let n = 1; ; ++n) {
            let host;
            try {
                host = await startHostWithoutThread(n, { flags: ["--max-sessions", "2"] });
            } catch (error) {
                assert.match(error.message, /talvensor-host: .*Resource temporarily unavailable/);
                told.push("start");
                continue;
            }
            try {
                const before = holdings(host);
                const errors = await use(host);
                if (!isHit(host)) {
                    break;
                }
                assert.equal(errors.length, 1, errors.join());
                assert.match(errors[0], /BadResourceUnavailable/);
                told.push("client");
                await becomesWhole(host, before);
                assert.deepEqual(await use(host), []); // both places are there
                await becomesWhole(host, before);
            } finally {
                await host.stop();
            }
        }
        test.diagnostic(told.join());
        assert.ok(told.filter((each) => each === "client").length >= 4, told.join()); // a session's and its file system's
    });
});

describe("The log", () => {
    it("is not filled by a stranger: lines of one kind are counted after some hundreds", async () => {
        const host = await startHost();
        try {
            const stranger = await RawClient.open(host);
            const token = Buffer.concat([Buffer.from([4, 1, 0]), Buffer.alloc(16)]);
            const count = 5_000;
            const isRefused = "Session not found";
            const lines = () => host.log.split("\n").filter((line) => line.includes(isRefused));
            const counted = () => lines().reduce((sum, line) => sum + Number(/\(and (\d+) more like it\)/.exec(line)?.[1] ?? 0), 0);
            await stranger.activateSessions(Array(count).fill(anonymous), { token });
            // A slow host counts them in several lines.
            await waitFor("the count", () => counted() > count / 2);
            assert.ok(lines().length < count / 2, `${lines().length} lines`);
            await stranger.end();
        } finally {
            await host.stop();
        }
    });
});
