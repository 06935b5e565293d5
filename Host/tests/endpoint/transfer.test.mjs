// Transfers: large files, names of any bytes, and clients that go in the middle.

import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { createHash, randomBytes } from "node:crypto";
import { once } from "node:events";
import { existsSync, mkdirSync, readdirSync, readFileSync, statSync, writeFileSync } from "node:fs";
import { after, before, describe, it } from "node:test";
import { fileURLToPath } from "node:url";
import { cannotInspect, noTime, startHost, waitFor, within } from "./harness.mjs";

const mebibyte = 1024 * 1024;
const hash = (content) => createHash("sha256").update(content).digest("hex");

describe("Transfers", () => {
    let host;
    before(async () => (host = await startHost()));
    after(() => host.stop());

    for (const policy of ["None", "Basic256Sha256"]) {
        it(`carry 16 MiB in one upload (${policy})`, async () => {
            const files = await (await host.connect({ policy })).createFiles();
            const path = host.path(`large-${policy}`);
            const content = randomBytes(16 * mebibyte);
            await files.upload(path, content);
            assert.equal(hash(readFileSync(path)), hash(content));
        });

        it(`carry a file in blocks, up and down (${policy})`, async () => {
            const files = await (await host.connect({ policy })).createFiles();
            const path = host.path(`blocks-${policy}`);
            const content = randomBytes(8 * mebibyte + 1);
            const handle = await files.call("OpenWrite", path, content.subarray(0, mebibyte));
            const writes = [];
            let position = mebibyte;
            for (; position + mebibyte < content.length; position += mebibyte) {
                writes.push(files.call("Write", handle, content.subarray(position, position + mebibyte)));
            }
            await Promise.all(writes);
            await files.call("WriteClose", handle, content.subarray(position), noTime, 0);
            assert.equal((await files.nextEvent("AckEvent")).Result, 0);
            assert.equal(hash(readFileSync(path)), hash(content));

            const reading = await files.call("Open", path, 1);
            await files.barrier();
            // Sent without waiting for answers; done in their order.
            const reads = Array.from({ length: Math.ceil(content.length / 61_440) + 1 }, () => files.call("Read", reading, 61_440));
            const blocks = await Promise.all(reads);
            assert.equal(blocks.at(-1).length, 0);
            assert.equal(hash(Buffer.concat(blocks)), hash(content));
        });
    }

    it("of more than a message may have fail, and leave nothing", async () => {
        const client = await host.connect();
        const files = await client.createFiles();
        const path = host.path("too-large");
        // The host has said how large a message may be in either direction: the client refuses this
        // one by itself.
        await assert.rejects(files.call("UploadFile", path, Buffer.alloc(40_000_001), noTime, 0), /BadTcpMessageTooLarge/);
        await files.upload(host.path("small"), "text");
        // This one is larger than the host takes from a client. The client may still be sending when
        // the host closes, and then calls it a break.
        await assert.rejects(files.call("UploadFile", path, Buffer.alloc(21_000_000), noTime, 0), /disconnected|Connection Break/);
        assert.equal(existsSync(path), false);
    });
});

describe("Names that are not UTF-8", () => {
    let host;
    let files;
    before(async () => {
        host = await startHost();
        files = await (await host.connect()).createFiles();
    });
    after(() => host.stop());

    const escape = (byte) => String.fromCodePoint(0x10f700 + byte);
    const escapeAll = (text) => [...Buffer.from(text)].map(escape).join("");

    // The bytes of a name, and the text for them.
    const names = {
        "Latin-1": [Buffer.from("Gr\u00fc\u00dfe", "latin1"), `Gr${escape(0xfc)}${escape(0xdf)}e`],
        "every byte that is none of UTF-8": [
            Buffer.from(Array.from({ length: 128 }, (_, i) => 255 - i)),
            Array.from({ length: 128 }, (_, i) => escape(255 - i)).join(""),
        ],
        "a character cut short": [Buffer.from([0x61, 0xe2, 0x82]), `a${escape(0xe2)}${escape(0x82)}`],
        "a surrogate": [Buffer.from([0xed, 0xa0, 0x80]), [0xed, 0xa0, 0x80].map(escape).join("")],
        "an escape in the name itself": [Buffer.from(`a${escape(0x80)}b`), `a${escapeAll(escape(0x80))}b`],
        "characters that are as they are": [Buffer.from("Grüße 文件 🗎"), "Grüße 文件 🗎"],
    };
    for (const [what, [bytes, text]] of Object.entries(names)) {
        it(`are carried both ways: ${what}`, async () => {
            const folder = host.path(hash(what).slice(0, 8));
            mkdirSync(folder);
            writeFileSync(Buffer.concat([Buffer.from(`${folder}/`), bytes]), "there");
            await files.call("List", folder, false);
            const { Content } = await files.nextEvent("ListResultEvent");
            assert.deepEqual(Content.map(({ path }) => path), [text]);

            await files.call("Delete", [`${folder}/${text}`]);
            await files.nextEvent("DeleteResultEvent");
            assert.deepEqual(readdirSync(folder), []);

            await files.upload(`${folder}/${text}`, "back");
            const [made] = readdirSync(folder, { encoding: "buffer" });
            assert.deepEqual(made, bytes);
        });
    }
});

describe("When a client goes", { skip: cannotInspect }, () => {
    const grace = 1_000;
    let host; // soon sure that it is gone
    let patient;
    before(async () => {
        host = await startHost({ flags: ["--grace", "1s"] });
        patient = await startHost({ flags: ["--grace", "60s"] });
    });
    after(() => Promise.all([host.stop(), patient.stop()]));

    const openedFile = async (client, path) => {
        const { host } = client;
        const files = await client.createFiles();
        const handle = await files.call("OpenWrite", path, Buffer.from("text"));
        await files.barrier();
        assert.deepEqual(host.openFiles(), [path]);
        return { files, handle };
    };

    it("its files are closed with its session", async () => {
        const client = await host.connect();
        await openedFile(client, host.path("closed"));
        await client.close();
        await waitFor("the file to be closed", () => host.openFiles().length === 0);
    });

    it("by a crash, its files are closed after the grace", async () => {
        const path = host.path("crash");
        const program = fileURLToPath(new URL("dying-client.mjs", import.meta.url));
        let killed;
        const child = spawn(process.execPath, [program, host.url, path], { stdio: ["ignore", "pipe", "inherit"] });
        try {
            child.stdout.setEncoding("utf8");
            await within("the client", waitForLine(child.stdout, "open"));
            assert.deepEqual(host.openFiles(), [path]);
        } finally {
            killed = Date.now();
            child.kill("SIGKILL");
            await within("the client's end", once(child, "exit"));
        }
        await waitFor("the file to be closed", () => host.openFiles().length === 0);
        // Not earlier; how much later is up to the machine. Clocks of milliseconds are cut off.
        assert.ok(Date.now() - killed >= grace - 1, `closed after ${Date.now() - killed} ms`);
        assert.ok(statSync(path).size >= mebibyte);
        await waitFor("the log", () => / ended after /.test(host.log));
    });

    it("and comes back within the grace, its session, handles and events are as before", async () => {
        const path = patient.path("return");
        const options = { connectionStrategy: { maxRetry: 100, initialDelay: 10, maxDelay: 20 } };
        const client = await patient.connect({ options });
        const { files, handle } = await openedFile(client, path);
        const session = String(client.session.sessionId);
        for (const round of [1, 2]) {
            const back = once(client.opcua, "after_reconnection");
            client.opcua._secureChannel.forceConnectionBreak();
            await within("the client's return", back);
            await waitFor("the session to be used again", () => !client.session.isReconnecting);
            assert.equal(String(client.session.sessionId), session);
            await files.call("Write", handle, Buffer.from(` round ${round}`));
            await files.barrier();
            assert.deepEqual(patient.openFiles(), [path]);
        }
        await files.call("Close", handle);
        assert.equal((await files.nextEvent("AckEvent")).Result, 0);
        assert.equal(readFileSync(path, "utf8"), "text round 1 round 2");
    });
});

async function waitForLine(stream, line) {
    let text = "";
    for await (const chunk of stream) {
        text += chunk;
        if (text.split("\n").includes(line)) {
            return;
        }
    }
    throw new Error(`There was no line "${line}" in: ${text}`);
}
