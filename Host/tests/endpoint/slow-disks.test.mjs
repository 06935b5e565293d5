// Folders on a disk that stops, or that takes its time, and the clients that have nothing to do with it.

import assert from "node:assert/strict";
import { spawn, spawnSync } from "node:child_process";
import { once } from "node:events";
import { readdirSync, readFileSync, writeFileSync } from "node:fs";
import { basename, join } from "node:path";
import { after, before, describe, it } from "node:test";
import { fileObjectsFlags, fileObjectsUri, makeFolder, opcua, programs, startHost, waitFor, within } from "./harness.mjs";

const { DataType, Variant } = opcua;

/** A file system that takes a time for each answer; see SlowDisk.cpp. Never look into it from here. */
class Disk {
    /** Returns nothing where none can be mounted. */
    static async mount(milliseconds) {
        const disk = new Disk();
        disk.folder = makeFolder("disk");
        disk.process = spawn(programs.slowDisk, [disk.folder, String(milliseconds)], { stdio: ["ignore", "pipe", "inherit"] });
        disk.exited = once(disk.process, "exit");
        const [begin] = await Promise.race([once(disk.process.stdout, "data"), disk.exited]);
        return String(begin).startsWith("ready") ? disk : undefined;
    }

    get name() {
        return basename(this.folder);
    }

    /**
     * Waits until it has stopped: with a question that it has read but not answered, the system lets
     * nobody end who asked it.
     */
    async stop() {
        this.process.kill("SIGSTOP");
        const threads = `/proc/${this.process.pid}/task`;
        const hasStopped = (thread) => / T /.test(readFileSync(join(threads, thread, "stat"), "latin1"));
        await waitFor("the disk to stop", () => readdirSync(threads).every(hasStopped));
    }

    goOn() {
        this.process.kill("SIGCONT");
    }

    /** What waits for an answer gets an error. */
    async end() {
        this.process.kill("SIGKILL");
        await this.exited;
        assert.equal(spawnSync("umount", ["--lazy", this.folder]).status, 0);
    }
}

const trial = process.getuid() === 0 ? await Disk.mount(0) : undefined;
await trial?.end();
const skip = trial ? false : "NOT TESTED: no file system can be mounted here";

const node = (client, key) => client.node(fileObjectsUri, key);
const open = (client, key) =>
    client.callMethod(node(client, key), "i=11580", [new Variant({ dataType: DataType.Byte, value: 1 })]);

/** Uses the folder that has nothing to do with the disk; returns the number of calls. */
async function workElsewhere(client, rounds) {
    const file = node(client, "f/root/file");
    for (let i = 0; i < rounds; ++i) {
        const handle = (await open(client, "f/root/file")).outputArguments[0];
        const read = await client.callMethod(file, "i=11585", [handle, new Variant({ dataType: DataType.Int32, value: 10 })]);
        assert.equal(read.outputArguments[0].value.toString(), "elsewhere");
        assert.equal((await client.callMethod(file, "i=11583", [handle])).statusCode.name, "Good");
        assert.equal((await client.read(node(client, "f.Size/root/file"))).statusCode.name, "Good");
        const { references } = await client.browse(node(client, "d/root"), { referenceTypeId: "Organizes" });
        assert.equal(references.length, 1);
    }
    return 5 * rounds;
}

async function startHostWith(disk, ...flags) {
    const host = await startHost({ flags: ["--read-only", disk.folder, ...fileObjectsFlags, ...flags] });
    writeFileSync(host.path("file"), "elsewhere");
    return host;
}

describe("A disk that stops", { skip }, () => {
    let disk;
    let host;
    let its; // the client that uses it
    let other;
    before(async () => {
        disk = await Disk.mount(0);
        host = await startHostWith(disk, "--drain", "1s");
        its = await host.connect();
        other = await host.connect();
    });
    after(async () => {
        await Promise.all([its, other].map((client) => client.close()));
        await disk.end();
    });

    it("keeps its own clients waiting, and no others", async () => {
        // On a busy machine, even a disk that works may be late.
        await waitFor("the entries", async () => {
            const known = await its.browse(node(its, `d/${disk.name}/directory`), { referenceTypeId: "Organizes" });
            return known.references?.length === 100;
        });
        await disk.stop();
        let isAnswered = false;
        const answer = open(its, `f/${disk.name}/file`).finally(() => (isAnswered = true));
        const looks = ["directory", "other"].map((name) => other.browse(node(other, `d/${disk.name}/${name}`)));
        await within("the calls elsewhere", workElsewhere(other, 50));
        // Shown as it was, and not to be had; neither keeps anybody.
        const [directory, unknown] = await within("the answers about the disk", Promise.all(looks));
        assert.equal(directory.statusCode.name, "Good");
        assert.equal(unknown.statusCode.name, "BadResourceUnavailable");
        const size = await within("the value", other.read(node(other, `f.Size/${disk.name}/file`)));
        assert.equal(size.statusCode.name, "BadResourceUnavailable");
        assert.equal(isAnswered, false);
        disk.goOn();
        const { outputArguments } = await within("the answer of the disk", answer);
        // The system waits for the disk when a file that is open ends, whatever happens to the host.
        const closed = await its.callMethod(node(its, `f/${disk.name}/file`), "i=11583", outputArguments);
        assert.equal(closed.statusCode.name, "Good");
        await waitFor("the value", async () => (await other.read(node(other, `f.Size/${disk.name}/file`))).statusCode.isGood());
    });

    it("does not keep the host from ending", async () => {
        await disk.stop();
        open(its, `f/${disk.name}/file`).catch(() => {}); // is never answered
        await workElsewhere(other, 1);
        host.process.kill("SIGTERM");
        const unfinished = 5; // the status
        assert.deepEqual(await within("the host to end", host.exited), { status: unfinished, signal: null }, host.log);
        assert.ok(host.log.includes(`The root '${disk.folder}' does not answer`), host.log);
    });
});

describe("A file that is open on a disk that stops", { skip }, () => {
    let disk;
    let host;
    let client;
    before(async () => {
        disk = await Disk.mount(0);
        host = await startHostWith(disk, "--drain", "1s");
        client = await host.connect();
    });
    after(async () => {
        await client.close();
        await disk.end();
    });

    // The system waits for the disk when a process ends, even a killed one.
    it("keeps nothing of the host from ending but its process, until the disk is gone", async () => {
        assert.equal((await open(client, `f/${disk.name}/file`)).statusCode.name, "Good");
        await disk.stop();
        host.process.kill("SIGTERM");
        await waitFor("the last line", () => host.log.includes("Stopped with unfinished work"));
        assert.ok(host.log.includes(`The root '${disk.folder}' does not answer`), host.log);
        assert.ok(!host.log.includes(`The root '${host.folder}' does not answer`), host.log);
        const next = await startHost({ url: host.url });
        await within("a call of the next host", (await next.connect()).read("i=2258"));
        await next.stop();
        disk.process.kill("SIGKILL");
        assert.deepEqual(await within("the host to end", host.exited), { status: 5, signal: null }, host.log);
    });
});

describe("A disk that takes 5 ms for each answer", { skip }, () => {
    let disk;
    let host;
    before(async () => {
        disk = await Disk.mount(5);
        host = await startHostWith(disk);
    });
    after(async () => {
        await host.stop();
        await disk.end();
    });

    it("takes from other clients no more than its share of the host's time", async () => {
        const [its, other] = [await host.connect(), await host.connect()];
        let answers = 0;
        let isOver = false;
        const read = async () => {
            for (let i = 0; !isOver; i = (i + 1) % 100) {
                const { statusCode } = await its.read(node(its, `f.Size/${disk.name}/directory/file ${i}`));
                answers += statusCode.isGood() ? 1 : 0;
            }
        };
        const readers = [read(), read(), read(), read()];
        await waitFor("an answer", () => answers > 0);
        const before = answers;
        const calls = await within("the calls elsewhere", workElsewhere(other, 200));
        isOver = true;
        const meanwhile = answers - before;
        await Promise.all(readers);
        // If they took turns, there would be an answer of each reader between two calls.
        assert.ok(meanwhile < calls, `${meanwhile} answers of the disk during ${calls} calls`);
    });
});
