// Security: logins, encryption, and services that nobody may use.

import assert from "node:assert/strict";
import { existsSync, readdirSync, readFileSync, statSync } from "node:fs";
import { join } from "node:path";
import { after, before, describe, it } from "node:test";
import {
    fileSystemUri, hostUri, makeCertificate, makeClientPki, makeFolder, opcua, opcuaTypes, owner, programs, runHost,
    startHost,
} from "./harness.mjs";

const { AttributeIds, DataType } = opcua;

const policies = ["Basic256Sha256", "Aes128_Sha256_RsaOaep", "Aes256_Sha256_RsaPss"];
const users = { alice: "Tr0ub4dor-und-3", "bob builder": "pässwörd mit Ö" };

/** Returns the reason why a connection or a login fails: a status if there is one. */
async function refusal(connecting) {
    const error = await connecting.then(() => undefined, (each) => each);
    assert.ok(error, "it was not refused");
    return /Bad\w+/.exec(error.message)?.[0] ?? error.message;
}

const login = (host, user, password, options = {}) => host.connect({ policy: "Basic256Sha256", user, password, ...options });

describe("A host with users", () => {
    let host;
    before(async () => (host = await startHost({ users })));
    after(() => host.stop());

    for (const [user, password] of Object.entries(users)) {
        it(`lets ${user} in with the password`, async () => {
            await (await (await login(host, user, password)).createFiles()).upload(host.path("file"), "text");
        });
    }

    it("refuses those without a name", async () => {
        for (const policy of ["None", "Basic256Sha256"]) {
            // The client does not even ask: the host does not offer it. See below for one that asks.
            assert.match(await refusal(host.connect({ policy })), /ANONYMOUS/i);
        }
    });

    it("refuses certificates of users, tokens of others, and passwords that are not encrypted", async () => {
        // Without encryption no signature is needed, and the token is refused. The client encrypts its
        // password with the host's certificate.
        const client = await host.connect({ user: "alice", password: users.alice });
        const certificateData = readFileSync(join(host.pki, "own/certificate.der"));
        const tokens = [
            new opcua.X509IdentityToken({ certificateData }),
            new opcua.IssuedIdentityToken({ tokenData: Buffer.from("token") }),
            new opcua.AnonymousIdentityToken({}),
        ];
        for (const token of tokens) {
            for (const policyId of await policyIds(client)) {
                token.policyId = policyId;
                const status = await refusal(activate(client, token));
                assert.match(status, /^BadIdentityToken(Invalid|Rejected)$/, `${token.constructor.name} as ${policyId}`);
            }
        }
        const login = new opcua.UserNameIdentityToken({ userName: "alice", password: Buffer.from(users.alice) });
        for (login.policyId of await policyIds(client)) {
            assert.match(await refusal(activate(client, login)), /^BadIdentityToken(Invalid|Rejected)$/, login.policyId);
        }
    });

    it("tells its endpoints and their policies to everybody", async () => {
        const client = await host.connect({ session: false });
        const endpoints = await client.opcua.getEndpoints();
        const names = endpoints.map((each) => each.securityPolicyUri.split("#")[1]);
        assert.deepEqual([...new Set(names)].filter((name) => name !== "None").sort(), [...policies].sort());
        assert.ok(endpoints.every((each) => each.endpointUrl.endsWith(`:${host.port}`)));
    });
});

/** Identities that the host offers for logging in, and some that it does not. */
async function policyIds(client) {
    const endpoints = await client.opcua.getEndpoints();
    const offered = endpoints.flatMap((each) => each.userIdentityTokens.map((token) => token.policyId));
    return [...new Set(offered), "anonymous", "certificate", ""];
}

/** Activates a session again, with a token that the client would not send. */
function activate(client, userIdentityToken) {
    const request = new opcua.ActivateSessionRequest({ userIdentityToken });
    return client.session.performMessageTransaction(request);
}

/** Asks for something that the host does not offer, which other clients refuse by themselves. */
async function refusesUnencrypted(host, url) {
    const client = await host.connect({ url, session: false });
    assert.ok((await client.opcua.getEndpoints()).length > 0, "endpoints are to be asked for without encryption");
    const request = new opcua.CreateSessionRequest({
        clientDescription: { applicationUri: "urn:test" }, endpointUrl: url, sessionName: "test", requestedSessionTimeout: 60_000,
    });
    const asked = new Promise((resolve, reject) => {
        client.opcua.performMessageTransaction(request, (error, response) => (error ? reject(error) : resolve(response)));
    });
    const status = await refusal(asked);
    assert.equal(status, "BadSecurityPolicyRejected");
}

describe("Guessing passwords", () => {
    // Without encryption it is faster than the delays.
    const login = (host, user, password) => host.connect({ user, password });
    const wrong = "Wr0ngPassw0rd";
    const tooSoon = (host, user) => host.log.split("\n").filter((line) => line.includes(`user '${user}'`) && line.includes("too many failed logins"));
    const waits = (host) => [...host.log.matchAll(/refused; the next login must wait (\d+) s/g)].map(([, seconds]) => Number(seconds));

    it("is slowed down twice as much each time, and no password is in the log", async () => {
        const host = await startHost({ users, flags: ["--trust-any-client", "--log-level", "trace"] });
        try {
            const tryWrong = () => refusal(login(host, "alice", wrong));
            for (let i = 0; i < 3; ++i) {
                assert.equal(await tryWrong(), "BadUserAccessDenied");
            }
            assert.deepEqual(tooSoon(host, "alice"), []);
            // The right one is not looked at either while the delay lasts.
            assert.equal(await refusal(login(host, "alice", users.alice)), "BadUserAccessDenied");
            assert.equal(tooSoon(host, "alice").length, 1, host.log);
            const start = Date.now();
            while (waits(host).length < 3) {
                assert.equal(await tryWrong(), "BadUserAccessDenied");
                assert.ok(Date.now() - start < 60_000, host.log);
            }
            assert.deepEqual(waits(host), [1, 2, 4]);
            assert.ok(Date.now() - start >= 2_000, "the delays are not kept");

            for (const secret of [wrong, ...Object.values(users)]) {
                assert.ok(!host.log.includes(secret) && !host.output.includes(secret), `${secret} is in the log`);
                assert.ok(!host.log.includes(Buffer.from(secret).toString("hex")));
                assert.ok(!host.log.includes(Buffer.from(secret).toString("base64")));
            }
        } finally {
            await host.stop();
        }
    });

    it("is refused for names that are not there just as for those that are", async () => {
        const host = await startHost({ users, flags: ["--trust-any-client"] });
        try {
            assert.equal(await refusal(login(host, "mallory", wrong)), "BadUserAccessDenied");
            assert.equal(await refusal(login(host, "alice", "")), "BadUserAccessDenied");
            await login(host, "bob builder", users["bob builder"]);
        } finally {
            await host.stop();
        }
    });
});

describe("A host without users, on loopback", () => {
    let host;
    before(async () => (host = await startHost({ ownKey: true })));
    after(() => host.stop());

    for (const policy of ["None", ...policies]) {
        it(`serves with ${policy}`, async () => {
            const files = await (await host.connect({ policy })).createFiles();
            const path = host.path(policy);
            await files.upload(path, "text");
            assert.equal(readFileSync(path, "utf8"), "text");
        });
    }

    it("refuses names, since it knows none", async () => {
        await refusal(host.connect({ user: "alice", password: "anything" }));
    });

    it("keeps its keys to itself", () => {
        const paths = readdirSync(host.pki, { recursive: true });
        assert.ok(paths.length > 0);
        assert.equal(statSync(host.pki).mode & 0o777, 0o700);
        for (const file of ["own/key.der", "own/certificate.der"]) {
            assert.equal(statSync(join(host.pki, file)).mode & 0o777, 0o600, file);
        }
    });

    it("lets nobody reach its keys through the file system", async () => {
        const files = await (await host.connect()).createFiles();
        const key = join(host.pki, "own/key.der");
        await files.call("Exists", key);
        assert.equal((await files.nextEvent("ExistsResultEvent")).Exist, false);
        const handle = await files.call("Open", key, 1);
        const { FileHandle, Result } = await files.nextEvent("AckEvent");
        assert.deepEqual([FileHandle, Result], [handle, 1]);
        assert.ok(existsSync(key));
    });

    it("lets nobody add or delete nodes and references", async () => {
        const client = await host.connect();
        const send = (request) => client.session.performMessageTransaction(request);
        const statuses = async (request) => (await send(request)).results.map((each) => (each.statusCode ?? each).name);
        const shared = client.node(hostUri, "FileSystem");
        assert.deepEqual(
            await statuses(new opcuaTypes.AddNodesRequest({
                nodesToAdd: [{
                    parentNodeId: "i=85", referenceTypeId: "i=35", browseName: { namespaceIndex: 1, name: "new" },
                    nodeClass: opcua.NodeClass.Object, typeDefinition: client.node(fileSystemUri, 1),
                    nodeAttributes: new opcuaTypes.ObjectAttributes({ displayName: "new", specifiedAttributes: 0 }),
                }],
            })),
            ["BadUserAccessDenied"]
        );
        assert.deepEqual(
            await statuses(new opcuaTypes.DeleteNodesRequest({ nodesToDelete: [{ nodeId: shared, deleteTargetReferences: true }] })),
            ["BadUserAccessDenied"]
        );
        assert.deepEqual(
            await statuses(new opcuaTypes.AddReferencesRequest({
                referencesToAdd: [{
                    sourceNodeId: "i=85", referenceTypeId: "i=35", isForward: true, targetNodeId: shared,
                    targetNodeClass: opcua.NodeClass.Object,
                }],
            })),
            ["BadUserAccessDenied"]
        );
        assert.deepEqual(
            await statuses(new opcuaTypes.DeleteReferencesRequest({
                referencesToDelete: [{
                    sourceNodeId: client.folder, referenceTypeId: "i=35", isForward: true, targetNodeId: shared, deleteBidirectional: true,
                }],
            })),
            ["BadUserAccessDenied"]
        );
        const { references } = await client.browse(client.folder);
        assert.ok(references.some((each) => String(each.nodeId) === String(shared)));
    });

    it("lets nobody write attributes", async () => {
        const client = await host.connect();
        const shared = client.node(hostUri, "FileSystem");
        const write = (nodeId, attributeId, value) => client.session.write({ nodeId, attributeId, value: { value } });
        const attempts = [
            [shared, AttributeIds.DisplayName, { dataType: DataType.LocalizedText, value: { text: "mine" } }],
            [shared, AttributeIds.EventNotifier, { dataType: DataType.Byte, value: 0 }],
            [client.node(fileSystemUri, 1010), AttributeIds.Executable, { dataType: DataType.Boolean, value: false }],
            [client.node(fileSystemUri, 1011), AttributeIds.Value, { dataType: DataType.Int32, value: 1 }],
            ["i=2267", AttributeIds.Value, { dataType: DataType.Byte, value: 0 }], // ServiceLevel
            ["i=2994", AttributeIds.Value, { dataType: DataType.Boolean, value: true }], // Auditing
        ];
        for (const [nodeId, attribute, value] of attempts) {
            const before = await client.read(nodeId, AttributeIds[attribute]);
            const status = await write(nodeId, attribute, value);
            assert.match(status.name, /^Bad(UserAccessDenied|NotWritable|WriteNotSupported)$/, `${nodeId} ${attribute}`);
            assert.deepEqual((await client.read(nodeId, AttributeIds[attribute])).value, before.value);
        }
    });
});

describe("A host for others than this machine", () => {
    const everywhere = "opc.tcp://0.0.0.0:0";
    const flags = (root) => [
        "--listen", everywhere, "--root", root, "--module", programs.module, "--model", programs.model, "--pki", makeFolder("pki"),
        "--trust-owner", owner,
    ];

    it("does not start without users", () => {
        const { status, error, output } = runHost(flags(makeFolder("root")));
        assert.equal(status, 3, error);
        assert.match(error, /users/);
        assert.equal(output, "");
    });

    it("lets in those whose certificate it trusts, with a password, encrypted", async () => {
        const [known, unknown] = [makeClientPki(), makeClientPki()];
        await makeCertificate(unknown);
        const host = await startHost({ users, url: everywhere, trusted: [await makeCertificate(known)] });
        try {
            const url = `opc.tcp://127.0.0.1:${host.port}`;
            for (const policy of policies) {
                const client = await login(host, "alice", users.alice, { policy, pki: known, url });
                await (await client.createFiles()).upload(host.path("file"), "text");
                await refusal(login(host, "alice", users.alice, { policy, pki: unknown, url }));
            }
            // The client does not tell why its connection was closed; the host does.
            assert.equal(host.log.match(/BadCertificateUntrusted/g)?.length, policies.length, host.log);
            await refusesUnencrypted(host, url);
            await refusal(login(host, "alice", users.alice, { pki: known, url, mode: opcua.MessageSecurityMode.Sign }));
            assert.equal(host.log.match(/Session of 'alice' from \S+ opened/g).length, policies.length);
        } finally {
            await host.stop();
        }
    });

    it("lets in anybody's certificate when told to, with a password", async () => {
        const host = await startHost({ users, url: everywhere, flags: ["--trust-any-client"] });
        try {
            const url = `opc.tcp://127.0.0.1:${host.port}`;
            await login(host, "alice", users.alice, { url });
            await refusesUnencrypted(host, url);
        } finally {
            await host.stop();
        }
    });
});
