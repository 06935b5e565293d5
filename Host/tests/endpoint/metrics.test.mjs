// The metrics that a host serves to Prometheus.

import assert from "node:assert/strict";
import { once } from "node:events";
import { request } from "node:http";
import { connect } from "node:net";
import { join } from "node:path";
import { statSync } from "node:fs";
import { describe, it } from "node:test";
import { makeFolder, runHost, startHost, waitFor, within } from "./harness.mjs";

async function startMeasured(address = "0", options = {}) {
    const host = await startHost({ ...options, flags: ["--metrics", address, ...(options.flags ?? [])] });
    const [, port] = address.startsWith("unix:") ? [] : await waitFor("the port", () => /Serving metrics on http:\/\/127\.0\.0\.1:(\d+)/.exec(host.log));
    return { host, target: port ? { host: "127.0.0.1", port: Number(port) } : { socketPath: address.slice(5) } };
}

async function get(target, { path = "/metrics", method = "GET" } = {}) {
    const sent = request({ ...target, path, method, agent: false }).end();
    const [response] = await within("an answer", once(sent, "response"));
    let text = "";
    for await (const part of response) {
        text += part;
    }
    return { status: response.statusCode, type: response.headers["content-type"], text };
}

/** Returns the value of a sample; undefined if there is none. */
const value = (text, name) => {
    const line = text.split("\n").find((each) => each.startsWith(`talvensor_${name} `));
    return line && Number(line.split(" ").at(-1));
};

describe("The metrics", () => {
    it("count sessions, calls by method and result, bytes and refused logins, and name no user or path", async () => {
        const { host, target } = await startMeasured("0", { users: { anna: "secret of anna" } });
        const client = await host.connect({ policy: "Basic256Sha256", user: "anna", password: "secret of anna" });
        await assert.rejects(host.connect({ policy: "Basic256Sha256", user: "anna", password: "wrong" }));
        const files = await client.createFiles();
        await files.call("UploadFile", "secret-name", Buffer.alloc(100_000), new Date(), 0);
        await files.barrier();
        const { status, type, text } = await get(target);
        await host.stop();
        assert.equal(status, 200);
        assert.match(type, /^text\/plain; version=0\.0\.4/);
        assert.equal(value(text, "sessions"), 1, text);
        assert.equal(value(text, "logins_refused_total"), 1);
        assert.equal(value(text, 'calls_total{method="UploadFile",result="Good"}'), 1);
        assert.equal(value(text, 'calls_total{method="CreateFileSystem",result="Good"}'), 1);
        assert.equal(value(text, 'call_seconds_count{method="UploadFile"}'), 1);
        assert.equal(value(text, 'call_seconds_bucket{method="UploadFile",le="+Inf"}'), 1);
        assert.ok(value(text, "received_bytes_total") > 100_000);
        assert.ok(value(text, "sent_bytes_total") > 0);
        for (const name of ["connections", "calls_in_flight", "events_waiting", "memory_brake", "memory_bytes", "audit_lines_lost_total"]) {
            assert.notEqual(value(text, name), undefined, name);
        }
        assert.doesNotMatch(text, /anna|secret|127\.0\.0\.1/);
        for (const line of text.trimEnd().split("\n")) {
            assert.match(line, /^(# (HELP|TYPE) talvensor_\w+ .+|talvensor_\w+(\{(\w+="[^"]*",?)+\})? [\d.e+-]+)$/);
        }
    });

    it("come by a socket that its owner's group may use, again after a restart", async () => {
        const socket = join(makeFolder("metrics"), "socket");
        for (let i = 0; i < 2; ++i) {
            const { host, target } = await startMeasured(`unix:${socket}`);
            assert.equal((await get(target)).status, 200);
            assert.equal(statSync(socket).mode & 0o777, 0o660);
            await host.stop();
        }
    });

    it("are for GET /metrics alone", async () => {
        const { host, target } = await startMeasured();
        assert.equal((await get(target, { path: "/" })).status, 404);
        assert.equal((await get(target, { method: "POST" })).status, 405);
        await host.stop();
    });

    it("are not held up by readers that say nothing or never read", async () => {
        const { host, target } = await startMeasured();
        const readers = [];
        const read = (text) => {
            const reader = connect(target.port, target.host).on("error", () => {});
            reader.write(text);
            readers.push(reader);
            return new Promise((resume) => reader.on("close", resume));
        };
        const silent = Array.from({ length: 6 }, (_, i) => read(i % 2 ? "GET /metrics HTTP/1.1\r\nHost: a\r\n\r\n" : "GET /me"));
        assert.equal((await get(target)).status, 200);
        const many = Array.from({ length: 20 }, () => read("GET"));
        readers.forEach((each) => each.resume());
        await within("the host to close them", Promise.all([...silent, ...many]));
        assert.equal((await get(target)).status, 200);
        await host.stop();
    });

    it("are not served to other machines", () => {
        for (const address of ["0.0.0.0:9464", "192.0.2.1:9464", "[::]:9464"]) {
            const { status, error } = runHost(["--metrics", address]);
            assert.equal(status, 2);
            assert.match(error, /--metrics: '.*' is no address of loopback: others could read the metrics/);
        }
    });
});
