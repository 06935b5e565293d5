// SIGHUP: users, trusted certificates and the log file are read or opened again, and those who lost
// their access are out.

import assert from "node:assert/strict";
import { X509Certificate } from "node:crypto";
import {
    copyFileSync, existsSync, mkdirSync, readFileSync, renameSync, rmSync, writeFileSync,
} from "node:fs";
import { join } from "node:path";
import { after, before, describe, it } from "node:test";
import { makeCertificate, makeClientPki, makeFolder, startHost, waitFor, writeUsers } from "./harness.mjs";

const login = (host, user, password, options = {}) =>
    host.connect({ policy: "Basic256Sha256", user, password, ...options });

/** Returns the status with which a login fails. */
async function refusal(connecting) {
    const error = await connecting.then(() => undefined, (each) => each);
    assert.ok(error, "it was not refused");
    return /Bad\w+/.exec(error.message)?.[0] ?? error.message;
}

/** Sends SIGHUP, waits until it has taken effect, and returns what the log says about it. */
async function reload(host, readLog = () => host.log) {
    const earlier = readLog().length;
    host.process.kill("SIGHUP");
    const lines = () => readLog().slice(earlier);
    await waitFor("the reload", () => / Notice Host 0 "Reloaded" /.test(lines()));
    return lines();
}

/** Waits until a session has ended. */
const ended = (client) =>
    waitFor("the session's end", async () => {
        const answer = await client.read(client.folder, "BrowseName").catch((error) => error);
        return /BadSession|closed|disconnect/i.test(answer.message ?? "");
    });

describe("A host with users that reloads", () => {
    let host;
    let users;
    before(async () => {
        host = await startHost({ users: { ann: "one", bob: "two" } });
        users = join(host.folder, "users");
    });
    after(() => host.stop());

    it("takes a changed password, and the old one no more; sessions stay", async () => {
        const files = await (await login(host, "ann", "one")).createFiles();
        writeUsers(users, { ann: "new" });
        assert.match(await reload(host), /"Read 2 users again"/);
        assert.equal(await refusal(login(host, "ann", "one")), "BadUserAccessDenied");
        await login(host, "ann", "new");
        await login(host, "bob", "two");
        await files.upload(host.path("file"), "text");
    });

    it("keeps the users when the file cannot be read or is wrong", async () => {
        const content = readFileSync(users);
        rmSync(users);
        assert.match(await reload(host), /Error Host 0 "Cannot read the users again, the old ones stay in force: .*No such file/);
        writeFileSync(users, "nonsense\n", { mode: 0o600 });
        assert.match(await reload(host), /Error Host 0 "Cannot read the users again, .*users', line 1: /);
        await login(host, "bob", "two");
        writeFileSync(users, content);
        assert.match(await reload(host), /"Read 2 users again"/);
    });

    it("ends the sessions of a removed user, and lets him in no more", async () => {
        const [leaving, staying] = [await login(host, "bob", "two"), await login(host, "ann", "new")];
        const lines = readFileSync(users, "utf8").split("\n").filter((line) => !line.startsWith("bob:"));
        writeFileSync(users, lines.join("\n"));
        assert.match(await reload(host), /Session of 'bob' from 127.0.0.1 is closed: its user was removed/);
        await ended(leaving);
        assert.equal(await refusal(login(host, "bob", "two")), "BadUserAccessDenied");
        await (await staying.createFiles()).upload(host.path("file"), "text");
    });
});

describe("A host that trusts certificates and reloads", () => {
    const users = { ann: "one" };
    const url = "opc.tcp://0.0.0.0:0";
    let host;
    let trusted;
    const pkis = [];
    const connect = (index) =>
        login(host, "ann", "one", { pki: pkis[index], url: `opc.tcp://127.0.0.1:${host.port}` });
    const fileOf = (index) => join(host.pki, "trusted", `client${index}.pem`);

    before(async () => {
        for (const each of [0, 1]) {
            pkis[each] = makeClientPki();
        }
        trusted = await Promise.all(pkis.map((each) => makeCertificate(each)));
        host = await startHost({ users, url, trusted: trusted.slice(0, 1) });
    });
    after(() => host.stop());

    it("lets a client in whose certificate is new there", async () => {
        await assert.rejects(connect(1));
        const { fingerprint256 } = new X509Certificate(readFileSync(trusted[1]));
        const line = `Certificate of a client refused: fingerprint ${fingerprint256}, subject 'CN=endpoint-test`;
        await waitFor("the refused certificate in the log", () => host.log.includes(line));
        copyFileSync(trusted[1], fileOf(1));
        assert.match(await reload(host), /"Read 2 trusted certificates, 0 of issuers and 0 revocation lists again"/);
        await connect(1);
    });

    it("keeps the certificates when one is broken", async () => {
        writeFileSync(fileOf(2), "nonsense");
        assert.match(await reload(host), /Error Host 0 "Cannot read the trusted certificates again, the old ones stay/);
        rmSync(fileOf(2));
        await connect(0);
    });

    it("ends the sessions of a client whose certificate was removed", async () => {
        const [staying, leaving] = [await connect(0), await connect(1)];
        rmSync(fileOf(1));
        assert.match(await reload(host), /is closed: its client's certificate is no longer trusted/);
        await ended(leaving);
        await assert.rejects(connect(1));
        // Its connection is still there, but it gets no session on it either.
        await assert.rejects(leaving.opcua.createSession({ type: 1, userName: "ann", password: "one" }));
        await (await staying.createFiles()).upload(host.path("file"), "text");
    });

    it("trusts nobody when all are removed", async () => {
        rmSync(fileOf(0));
        await reload(host);
        await assert.rejects(connect(0));
    });
});

describe("A host with a log file that reloads", () => {
    it("goes on in a new file after the old one was moved away, or in the old one if it must", async () => {
        const log = join(makeFolder("log"), "log");
        const read = (file) => (existsSync(file) ? readFileSync(file, "utf8") : "");
        const host = await startHost({ flags: ["--log-file", log] });
        await host.connect();
        renameSync(log, `${log}.1`);
        assert.match(await reload(host, () => read(log)), /^\S+ Notice Host 0 "Opened the log file again"/);
        assert.match(read(`${log}.1`), /Session of anonymous from 127.0.0.1 opened/);
        assert.doesNotMatch(read(`${log}.1`), /again/);
        renameSync(log, `${log}.2`);
        mkdirSync(log);
        const lines = await reload(host, () => read(`${log}.2`));
        assert.match(lines, /Error Host 0 "Cannot open the log file again, the old one stays in use: .*Is a directory/);
        await host.stop();
    });
});
