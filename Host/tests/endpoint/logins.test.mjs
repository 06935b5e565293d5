// Guessing passwords is slow, and keeps nobody else out.

import assert from "node:assert/strict";
import { once } from "node:events";
import { after, before, describe, it } from "node:test";
import { named, RawClient, SteadyClient } from "./adversary.mjs";
import { startHost, waitFor, within } from "./harness.mjs";

const users = { alice: "correct horse", bob: "battery staple", carol: "tr0ub4dor" };
const elsewhere = "127.0.0.2";
const refused = 0x801f0000; // BadUserAccessDenied

const login = (host, user) => host.connect({ user, password: users[user] });

/** Tries wrong passwords of a user, one after another. */
async function guess(host, user, count, from) {
    const client = await RawClient.open(host, from);
    const session = await client.createSession();
    for (let i = 0; i < count; ++i) {
        assert.equal(await client.activateSession(session, named(session, user, `wrong ${i}`)), refused);
    }
    await client.end();
}

const isSeen = /refused(?!: too many)/;
const lines = (host, text) => host.log.split("\n").filter((line) => line.includes(text));

describe("Guessing a user's password", () => {
    let host;
    before(async () => (host = await startHost({ users, flags: ["--trust-any-client", "--grace", "60s", "--max-sessions", "50"] })));
    after(() => host.stop());

    it("keeps the user out nowhere else", async () => {
        const own = await RawClient.open(host);
        const session = await own.createSession();
        await guess(host, "alice", 5, elsewhere);
        assert.equal(await own.activateSession(session, named(session, "alice", users.alice)), 0);
        assert.match(lines(host, `'alice' from ${elsewhere}`).at(-1), /refused: too many failed logins/);
        await own.end();
    });

    it("keeps out no other user, also from the same address", async () => {
        await guess(host, "nobody", 5);
        await guess(host, "alice", 5);
        await (await login(host, "bob")).close();
    });

    it("does not keep out who was let in from there before", async () => {
        await (await login(host, "bob")).close();
        await guess(host, "bob", 5);
        assert.match(lines(host, "'bob' from 127.0.0.1").at(-1), /refused: too many failed logins/);
        await (await login(host, "bob")).close();
    });

    it("does not keep out a client that comes back to its session, nor close its files", async () => {
        const options = { connectionStrategy: { maxRetry: 100, initialDelay: 10, maxDelay: 20 } };
        const client = await host.connect({ user: "carol", password: users.carol, options });
        const files = await client.createFiles();
        const path = host.path("kept");
        await files.call("OpenWrite", path, Buffer.from("text"));
        await files.barrier();
        const session = String(client.session.sessionId);
        await guess(host, "carol", 30); // more than are looked at ahead of their time
        const back = once(client.opcua, "after_reconnection");
        client.opcua._secureChannel.forceConnectionBreak();
        await within("the client's return", back);
        await waitFor("the session to be used again", () => !client.session.isReconnecting);
        assert.equal(String(client.session.sessionId), session);
        await files.barrier();
        assert.deepEqual(host.openFiles(), [path]);
        assert.equal(lines(host, "Return of user 'carol'").length, 1);
        await client.close();
    });
});

describe("Many guesses at once", () => {
    it("are not all checked: most are refused at once when they come together", async () => {
        const host = await startHost({ users, flags: ["--trust-any-client", "--log-level", "notice"] });
        try {
            const client = await RawClient.open(host);
            const session = await client.createSession();
            const guesses = Array.from({ length: 80 }, (_, i) => named(session, `user${i}`, "wrong"));
            const statuses = await client.activateSessions(guesses, session);
            assert.ok(statuses.every((status) => status === refused));
            await client.end();
            const told = await waitFor("all lines", () => {
                const all = lines(host, "Login of user 'user");
                return all.length === guesses.length && all;
            });
            const seen = told.filter((line) => isSeen.test(line)).length;
            assert.ok(seen >= 1 && seen < guesses.length, `${seen} are looked at`);
        } finally {
            await host.stop();
        }
    });

    it("do not hold up others, who get their turn between them", async () => {
        const host = await startHost({ users, flags: ["--trust-any-client"] });
        try {
            const files = await (await login(host, "alice")).createFiles();
            const stranger = await RawClient.open(host);
            const session = await stranger.createSession();
            const guesses = Array.from({ length: 1_000 }, () => named(session, "nobody", "wrong"));
            let answered = false;
            const statuses = stranger.activateSessions(guesses, session).finally(() => (answered = true));
            for (let i = 0; i < 4; ++i) {
                await files.call("Exists", host.root);
                assert.ok(!answered, `all guesses are answered before the call ${i + 1}`);
            }
            await statuses;
            await stranger.end();
        } finally {
            await host.stop();
        }
    });

    it("keep out nobody who logs in meanwhile, and nobody's calls", async () => {
        const host = await startHost({ users, flags: ["--trust-any-client"] });
        const connect = host.connect.bind(host);
        try {
            host.connect = (options) => connect({ user: "alice", password: users.alice, ...options });
            const steady = await SteadyClient.start(host);
            let stopped = false;
            const flood = async (number) => {
                const client = await RawClient.open(host);
                for (let i = 0; !stopped; ++i) {
                    const session = await client.createSession();
                    assert.equal(await client.activateSession(session, named(session, `user${number}.${i}`, "wrong")), refused);
                }
                await client.end();
            };
            const floods = Promise.all(Array.from({ length: 6 }, (_, number) => flood(number)));
            await waitFor("the flood", () => lines(host, "refused").length > 12);
            const others = Promise.all([login(host, "bob"), login(host, "carol")]); // for the first time
            await steady.callDuring(others, 1_000);
            stopped = true;
            await within("the flood's end", floods);
        } finally {
            await host.stop();
        }
    });
});
