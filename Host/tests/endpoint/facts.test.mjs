// The facts that a host tells of itself, and that they are true.

import assert from "node:assert/strict";
import { once } from "node:events";
import { connect, createServer } from "node:net";
import { after, before, describe, it } from "node:test";
import { noTime, opcuaTypes, startHost, within } from "./harness.mjs";

const users = { alice: "correct horse" };

describe("A host says of itself", () => {
    let host;
    let client;
    before(async () => {
        host = await startHost({ users });
        client = await host.connect({ user: "alice", password: users.alice });
    });
    after(() => host.stop());

    const valueOf = async (nodeId) => {
        const { statusCode, value } = await client.read(nodeId);
        assert.equal(statusCode.name, "Good", nodeId);
        return value.value;
    };

    it("which profiles it has, and none whose services it refuses", async () => {
        const profiles = await valueOf("i=2269"); // ServerCapabilities.ServerProfileArray
        assert.deepEqual(profiles.map((each) => each.split("/").at(-1)), ["MicroEmbeddedDevice2017", "Methods"]);
    });

    it("what it was built of, by whom and when", async () => {
        const build = await valueOf("i=2260"); // ServerStatus.BuildInfo
        assert.equal(build.productName, "talvensor-host");
        assert.equal(build.manufacturerName, "Talvensor");
        assert.match(build.softwareVersion, /^\d+\.\d+\.\d+$/);
        assert.equal(build.buildNumber, build.buildDate.toISOString().slice(0, 10).replaceAll("-", ""));
        assert.ok(build.buildDate.getFullYear() >= 2020);
    });

    it("how long a byte string may be, and takes one of that length", async () => {
        const longest = await valueOf("i=12911"); // ServerCapabilities.MaxByteStringLength
        assert.ok(longest > 16 * 1024 * 1024, String(longest));
        assert.equal(await valueOf("i=11703"), longest); // MaxStringLength
        const files = await client.createFiles();
        await files.upload(host.path("longest"), Buffer.alloc(longest), noTime);
    });

    it("how many sessions and subscriptions it takes", async () => {
        assert.equal(await valueOf("i=24095"), 100);
        assert.equal(await valueOf("i=24098"), 20);
    });

    it("which policies are the stronger ones", async () => {
        const endpoints = await client.opcua.getEndpoints();
        const levels = endpoints.map((each) => [each.securityPolicyUri.split("#")[1], each.securityLevel]);
        const ascending = levels.sort(([, left], [, right]) => left - right);
        assert.deepEqual(ascending.map(([name]) => name),
            ["None", "Basic256Sha256", "Aes128_Sha256_RsaOaep", "Aes256_Sha256_RsaPss"]);
        assert.equal(new Set(ascending.map(([, level]) => level)).size, 4);
    });

    it("that passwords are encrypted, on connections that are not as well", async () => {
        const endpoints = await client.opcua.getEndpoints();
        for (const { securityPolicyUri, userIdentityTokens } of endpoints) {
            const [policy, ...others] = userIdentityTokens;
            assert.equal(others.length, 0);
            const protection = policy.securityPolicyUri || securityPolicyUri;
            assert.doesNotMatch(protection, /#None$/);
        }
    });
});

/** Makes a port of this machine that leads to another address: the client cannot use IPv6 addresses. */
async function relay(address, port) {
    const server = createServer((near) => {
        const far = connect(port, address);
        for (const [one, other] of [[near, far], [far, near]]) {
            one.pipe(other).on("error", () => one.destroy());
        }
    });
    server.listen(0, "127.0.0.1");
    await once(server, "listening");
    return server;
}

/** Returns the answer of a host to a client that asks for servers. */
async function findServers(host, address) {
    const server = await relay(address, host.port);
    const client = await host.connect({ url: `opc.tcp://127.0.0.1:${server.address().port}`, session: false });
    const asked = new Promise((resolve, reject) => {
        const request = new opcuaTypes.FindServersRequest({});
        client.opcua.performMessageTransaction(request, (error, response) => (error ? reject(error) : resolve(response)));
    });
    const { servers } = await within("the servers", asked);
    await client.close();
    server.close();
    return servers;
}

describe("The URLs by which a host says that it is reached", () => {
    const addresses = {
        "one address": ["127.0.0.1", "127.0.0.1"],
        "one address of IPv6": ["[::1]", "::1"],
        "all addresses": ["0.0.0.0", "127.0.0.1"],
        "all addresses of IPv6": ["[::]", "::1"],
    };
    for (const [what, [listening, reached]] of Object.entries(addresses)) {
        it(`lead to it when it listens on ${what}`, async () => {
            const host = await startHost({ url: `opc.tcp://${listening}:0`, users, flags: ["--trust-any-client"] });
            try {
                const [{ discoveryUrls }] = await findServers(host, reached);
                assert.ok(discoveryUrls.length > 0);
                for (const each of discoveryUrls) {
                    const { v6, v4, port } = /^opc\.tcp:\/\/(?:\[(?<v6>[^\]]+)\]|(?<v4>[^:/]+)):(?<port>\d+)$/.exec(each).groups;
                    assert.equal(Number(port), host.port, each);
                    assert.ok(!["0.0.0.0", "::"].includes(v6 ?? v4), each);
                    const socket = connect(host.port, v6 ?? v4);
                    await within(`a connection to ${each}`, once(socket, "connect"));
                    socket.destroy();
                }
            } finally {
                await host.stop();
            }
        });
    }
});
