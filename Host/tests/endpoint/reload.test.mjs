// SIGHUP: users, trusted certificates and the log file are read or opened again, and those who lost
// their access are out.

import assert from "node:assert/strict";
import { X509Certificate } from "node:crypto";
import {
    copyFileSync, existsSync, mkdirSync, readFileSync, renameSync, rmSync, writeFileSync,
} from "node:fs";
import { join } from "node:path";
import { after, before, describe, it } from "node:test";
import {
    makeCertificate, makeClientPki, makeFolder, runHost, startHost, waitFor, writeUsers,
} from "./harness.mjs";

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

    it("lets nobody in once the last user is removed, and ends all sessions", async () => {
        const content = readFileSync(users);
        const leaving = await login(host, "ann", "new");
        writeFileSync(users, "# nobody\n");
        assert.match(await reload(host), /Warning Host 0 "Read no users again: '.*users' has none, so nobody can log in"/);
        await ended(leaving);
        assert.equal(await refusal(login(host, "ann", "new")), "BadUserAccessDenied");
        await assert.rejects(host.connect({ policy: "Basic256Sha256" }));
        writeFileSync(users, content);
        assert.match(await reload(host), /"Read 1 user again"/);
        await login(host, "ann", "new");
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
        const broken = [fileOf(2), join(host.pki, "issuers", "issuer.der"), join(host.pki, "revoked", "list.crl")];
        broken.forEach((file) => writeFileSync(file, "nonsense"));
        const lines = await reload(host);
        const failure = "Cannot read the trusted certificates again, the old ones stay in force: ";
        const reasons = ["a certificate", "a certificate", "a revocation list"].map(
            (kind, i) => `'${broken[i]}' is not ${kind} in DER or PEM form`,
        );
        assert.ok(lines.includes(`Error Host 0 "${failure}${reasons.join("; ")}"`), lines);
        broken.forEach((file) => rmSync(file));
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

    it("keeps a refused certificate, which a command lists and trusts", async () => {
        const pki = makeClientPki();
        const { fingerprint256, subject } = new X509Certificate(readFileSync(await makeCertificate(pki)));
        const connectIt = () =>
            login(host, "ann", "one", { pki, url: `opc.tcp://127.0.0.1:${host.port}` });
        const run = (...command) => {
            const { status, output, error } = runHost([...command, "--pki", host.pki]);
            assert.equal(status, 0, error);
            return output;
        };
        await assert.rejects(connectIt());
        await waitFor("the kept certificate", () => run("rejected").includes(fingerprint256));
        const listed = run("rejected").split(/\n(?! )/).find((each) => each.startsWith(fingerprint256));
        assert.match(listed, /\n {2}subject {2}CN=endpoint-test/, subject);
        assert.match(listed, /\n {2}valid {4}20\S+Z until 20\S+Z\n {2}refused {2}20\S+Z, first from 127\.0\.0\.1$/);

        assert.match(run("trust", fingerprint256.slice(0, 14)), /is trusted: .*reload/);
        assert.ok(!run("rejected").includes(fingerprint256));
        assert.match(await reload(host), /"Read \d trusted certificates, /);
        await connectIt();
        rmSync(join(host.pki, "trusted", `${fingerprint256.replaceAll(":", "")}.der`));
    });

    it("trusts nobody when all are removed", async () => {
        rmSync(fileOf(0));
        await reload(host);
        await assert.rejects(connect(0));
    });
});

describe("A host for other machines that trusts no client yet", () => {
    it("starts, lets nobody in, and trusts the first client by a command", async () => {
        const host = await startHost({ users: { ann: "one" }, url: "opc.tcp://0.0.0.0:0", trusted: [] });
        const pki = makeClientPki();
        const { fingerprint256 } = new X509Certificate(readFileSync(await makeCertificate(pki)));
        const connect = () => login(host, "ann", "one", { pki, url: `opc.tcp://127.0.0.1:${host.port}` });
        const run = (...command) => runHost([...command, "--pki", host.pki]).output;
        await assert.rejects(connect());
        await waitFor("the kept certificate", () => run("rejected").includes(fingerprint256));
        run("trust", fingerprint256);
        assert.match(await reload(host), /"Read 1 trusted certificate, /);
        await connect();
        await host.stop();
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
