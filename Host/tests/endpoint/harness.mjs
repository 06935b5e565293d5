// Runs real hosts and talks to them as a client that shares no code with them. Use it so:
//
//     const host = await startHost();                  // a process of its own, on a free port
//     after(() => host.stop());                        // ends its clients too; its exit status is 0
//     const client = await host.connect();             // a session; see `connect` for encryption, users
//     const files = await client.createFiles();        // a file system of the session's own, heard
//     const handle = await files.call("OpenWrite", host.path("a.txt"), Buffer.from("text"));
//     await files.call("Close", handle);
//     const { Result } = await files.nextEvent("AckEvent");
//
// Nothing here sleeps: `waitFor` and `nextEvent` wait for a condition, and fail after a minute.
// The environment names the programs under test: TALVENSOR_HOST (the program), TALVENSOR_MODULE,
// TALVENSOR_MODEL and more, see `programs`; without these they are those of build/dev.

import assert from "node:assert/strict";
import { spawn, spawnSync } from "node:child_process";
import { webcrypto } from "node:crypto";
import { once } from "node:events";
import { chownSync, existsSync, mkdirSync, mkdtempSync, readdirSync, readlinkSync, renameSync, rmSync, statSync } from "node:fs";
import { tmpdir } from "node:os";
import { dirname, join, resolve } from "node:path";
import { fileURLToPath } from "node:url";

// node-opcua looks for a global one, which node 18 does not have yet.
globalThis.crypto ??= webcrypto;

export const opcua = (await import("node-opcua-client")).default;
/** Requests and structures that the client has no operation for. */
export const opcuaTypes = (await import("node-opcua-types")).default;
const { OPCUACertificateManager } = (await import("node-opcua-certificate-manager")).default;
const { AttributeIds, DataType, MessageSecurityMode, SecurityPolicy, StatusCodes, Variant, VariantArrayType } = opcua;

const repository = resolve(fileURLToPath(import.meta.url), "../../../..");
export const programs = {
    host: process.env.TALVENSOR_HOST ?? join(repository, "build/dev/bin/talvensor-host"),
    module: process.env.TALVENSOR_MODULE ?? join(repository, "build/dev/lib/talvensor/modules/libTalvensor.FileSystem.so"),
    model:
        process.env.TALVENSOR_MODEL ??
        join(repository, "FileSystem/FileSystem/model/Talvensor.FileSystem.NodeSet2.xml"),
    exampleModule:
        process.env.TALVENSOR_EXAMPLE_MODULE ?? join(repository, "build/dev/lib/examples/libExample.Greeter.so"),
    fileObjectsModule:
        process.env.TALVENSOR_FILE_OBJECTS_MODULE ??
        join(repository, "build/dev/lib/talvensor/modules/libTalvensor.FileObjects.so"),
    fileObjectsModel: join(repository, "FileObjects/model/Talvensor.FileObjects.NodeSet2.xml"),
    treeModule: process.env.TALVENSOR_TREE_MODULE ?? join(repository, "build/dev/lib/tests/libTest.Tree.so"),
    slowDisk: process.env.TALVENSOR_SLOW_DISK ?? join(repository, "build/dev/bin/SlowDisk"),
    failingThreads: process.env.TALVENSOR_FAILING_THREADS ?? join(repository, "build/dev/lib/libFailingThreads.so"),
};

/** The flags by which a host serves its files as objects, too. */
export const fileObjectsFlags = ["--module", programs.fileObjectsModule, "--model", programs.fileObjectsModel];

/** The owner of the checkout, who need not be the user who runs the tests. */
export const owner = String(statSync(programs.model).uid);

export const hostUri = "urn:Talvensor:Host";
export const fileSystemUri = "urn:Talvensor:FileSystem";
export const fileObjectsUri = "urn:Talvensor:FileObjects";
export const longestWait = 60_000;

// Reasons that node-opcua gives for requests that it cancels itself because the client or its session
// was closed. Some are its own requests (keep-alive, publish), whose promises nobody holds.
const reasonsOfClosing = [
    /client channel\s+is being closed/,
    /^Session has been (closed|disposed)/,
    /^ClientSession is closed/,
    /Connection has been closed by client/,
    /session has no client/,
];

// Keeps these late rejections from failing a test file whose tests have all passed; every other
// unhandled rejection still fails it.
const emit = process.emit;
process.emit = function (name, reason, ...rest) {
    const isOfClosing =
        name === "unhandledRejection" && reasonsOfClosing.some((each) => each.test(reason?.message));
    return isOfClosing || emit.call(this, name, reason, ...rest);
};

/** The published numbers, inputs and outputs of the methods. */
export const methods = {
    Open: { id: 1010, inputs: [DataType.String, DataType.Int32], outputs: 1 },
    Close: { id: 1020, inputs: [DataType.UInt32], outputs: 0 },
    UploadFile: { id: 1030, inputs: [DataType.String, DataType.ByteString, DataType.DateTime, DataType.Byte], outputs: 1 },
    OpenWrite: { id: 1040, inputs: [DataType.String, DataType.ByteString], outputs: 1 },
    Write: { id: 1050, inputs: [DataType.UInt32, DataType.ByteString], outputs: 0 },
    WriteClose: { id: 1060, inputs: [DataType.UInt32, DataType.ByteString, DataType.DateTime, DataType.Byte], outputs: 0 },
    CreateDirectory: { id: 1070, inputs: [DataType.String], outputs: 0 },
    Delete: { id: 1080, inputs: [[DataType.String]], outputs: 0 },
    List: { id: 1090, inputs: [DataType.String, DataType.Boolean], outputs: 0 },
    Exists: { id: 1100, inputs: [DataType.String], outputs: 0 },
    Read: { id: 1110, inputs: [DataType.UInt32, DataType.UInt32], outputs: 1 },
    GetDateTime: { id: 1120, inputs: [DataType.String], outputs: 1 },
    SetDateTime: { id: 1130, inputs: [DataType.String, DataType.DateTime], outputs: 0 },
    GetPosition: { id: 1140, inputs: [DataType.UInt32], outputs: 1 },
    SetPosition: { id: 1150, inputs: [DataType.UInt32, DataType.UInt64], outputs: 0 },
};

/** The published numbers and own fields of the event types. */
export const eventTypes = {
    AckEvent: { id: 54, fields: ["FileHandle", "Result"] },
    ExistsResultEvent: { id: 64, fields: ["Exist"] },
    DeleteResultEvent: { id: 66, fields: [] },
    CreateDirectoryResultEvent: { id: 67, fields: [] },
    ListResultEvent: { id: 68, fields: ["Content", "LimitExceeded"] },
};

/** The fields of every event. */
export const baseFields = [
    "EventId", "EventType", "SourceNode", "SourceName", "Time", "ReceiveTime", "Message", "Severity",
];

/** No time, as an input. */
export const noTime = new Date(Date.UTC(1601, 0, 1));

/** Waits until `condition()` is something other than undefined, null and false, and returns it. */
export async function waitFor(what, condition, limit = longestWait) {
    const end = Date.now() + limit;
    for (;;) {
        const result = await condition();
        if (result) {
            return result;
        }
        if (Date.now() > end) {
            throw new Error(`Waited in vain for ${what}`);
        }
        await new Promise((resume) => setTimeout(resume, 5));
    }
}

/** Returns the result of a promise, or fails with the name of what it waited for. */
export function within(what, promise, limit = longestWait) {
    let timer;
    const late = new Promise((_, reject) => {
        timer = setTimeout(() => reject(new Error(`Waited in vain for ${what}`)), limit);
    });
    return Promise.race([promise, late]).finally(() => clearTimeout(timer));
}

const folders = [];
process.on("exit", () => folders.forEach((folder) => rmSync(folder, { recursive: true, force: true })));

/** The value for `skip` of tests that inspect a host, which other processes of its user cannot. */
export const cannotInspect = process.getuid() === 0 ? false : "NOT TESTED: only root can see what a host has open";

/** Makes a folder that is removed when this process ends. */
export function makeFolder(name = "folder") {
    const folder = mkdtempSync(join(tmpdir(), `talvensor-${name}-`));
    folders.push(folder);
    return folder;
}

const running = new Set();
process.on("exit", () => running.forEach((child) => child.kill("SIGKILL")));

/** Writes a user file with the host's own command. `users`: passwords by name. */
export function writeUsers(file, users) {
    for (const [name, password] of Object.entries(users)) {
        const result = spawnSync(programs.host, ["passwd", file, name], { input: `${password}\n` });
        assert.equal(result.status, 0, String(result.stderr));
    }
}

/**
 * Starts a host with one root and waits until it listens. Options, all of them optional:
 * - users: passwords by name; without them anybody may log in
 * - url: where it listens, "opc.tcp://127.0.0.1:0"
 * - pki: its folder of keys; a new one
 * - ownKey: true has it make its key, see KeptKey
 * - trusted: certificate files of clients that it trusts
 * - flags: further command line arguments
 * - user: the number of the user that it runs as; needs root
 * - program: another host than that of this build, which finds modules and models by itself
 */
export async function startHost(options = {}) {
    const host = new Host(options);
    await host.start();
    return host;
}

/** Runs a host that should not start; returns its output and its exit status. */
export function runHost(flags) {
    const result = spawnSync(programs.host, flags, { encoding: "utf8", timeout: longestWait });
    return { status: result.status, output: result.stdout, error: result.stderr };
}

let hosts = 0;

function copyFolder(from, to) {
    mkdirSync(dirname(to), { recursive: true, mode: 0o700 });
    assert.equal(spawnSync("cp", ["-a", from, to]).status, 0);
}

/**
 * Making a key takes longer than most tests. The n-th host of a process takes the key that the n-th host
 * of an earlier process made; those of one process stay different. Likewise its clients' common key.
 */
class KeptKey {
    constructor(name) {
        this.kept = join(process.env.TALVENSOR_KEPT_KEYS, name);
    }

    /** Makes the folder, if one was kept. */
    giveTo(folder) {
        if (existsSync(this.kept)) {
            copyFolder(this.kept, folder);
        }
    }

    takeFrom(folder) {
        if (!existsSync(this.kept)) {
            const whole = `${this.kept}.${process.pid}`;
            copyFolder(folder, whole);
            try {
                renameSync(whole, this.kept);
            } catch {
                rmSync(whole, { recursive: true }); // another process was sooner
            }
        }
    }
}

class Host {
    constructor({ users, url = "opc.tcp://127.0.0.1:0", pki, ownKey, trusted = [], flags = [], user, program }) {
        this.folder = makeFolder("host");
        this.root = join(this.folder, "root");
        this.pki = pki ?? join(this.folder, "pki");
        this.clients = [];
        this.output = "";
        this.log = ""; // everything that it wrote to its log so far
        mkdirSync(this.root);
        this.user = user === undefined ? {} : { uid: user, gid: user };
        if (user !== undefined) {
            [this.folder, this.root].forEach((each) => chownSync(each, user, user));
        }
        // One that says how keys are kept, or has another user, makes its own.
        if (process.env.TALVENSOR_KEPT_KEYS && pki === undefined && user === undefined && !ownKey) {
            this.key = new KeptKey(`endpoint${hosts++}`);
            this.key.giveTo(join(this.pki, "own"));
        }
        this.program = program ?? programs.host;
        const modules = program ? [] : ["--module", programs.module, "--model", programs.model];
        this.arguments = [
            "--listen", url, "--root", this.root, ...modules, "--pki", this.pki, "--trust-owner", owner, ...flags,
        ];
        if (users) {
            writeUsers(join(this.folder, "users"), users);
            this.arguments.push("--users", join(this.folder, "users"));
        }
        if (trusted.length > 0) {
            mkdirSync(join(this.pki, "trusted"), { recursive: true, mode: 0o700 });
            trusted.forEach((file, i) => {
                const copy = join(this.pki, "trusted", `client${i}.pem`);
                assert.equal(spawnSync("cp", [file, copy]).status, 0);
            });
        }
    }

    async start() {
        this.process = spawn(this.program, this.arguments, { stdio: ["ignore", "pipe", "pipe"], ...this.user });
        running.add(this.process);
        this.exited = once(this.process, "close").then(([status, signal]) => {
            running.delete(this.process);
            return { status, signal };
        });
        this.process.stdout.setEncoding("utf8").on("data", (text) => (this.output += text));
        this.process.stderr.setEncoding("utf8").on("data", (text) => (this.log += text));
        let ended = false;
        this.exited.then(() => (ended = true));
        await waitFor("the host to listen", () => {
            assert.ok(!ended, `The host does not start:\n${this.output}${this.log}`);
            // The last of the lines that every host writes.
            return /^ {2}encrypted .*$/m.test(this.output);
        });
        this.url = /^ {2}endpoint {2}(\S+)$/m.exec(this.output)[1].replace(/,$/, "");
        this.port = Number(/:(\d+)$/.exec(this.url)[1]);
        this.key?.takeFrom(join(this.pki, "own"));
    }

    get pid() {
        return this.process.pid;
    }

    /** Returns a path in the root. */
    path(...names) {
        return join(this.root, ...names);
    }

    /** Returns the files below the root that the host's process has open; see `cannotInspect`. */
    openFiles() {
        const descriptors = `/proc/${this.pid}/fd`;
        return readdirSync(descriptors).flatMap((descriptor) => {
            try {
                const target = readlinkSync(join(descriptors, descriptor));
                return target.startsWith(`${this.root}/`) ? [target] : [];
            } catch {
                return []; // was closed in between
            }
        });
    }

    /** See Client.open; closed with the host. */
    async connect(options = {}) {
        const client = new Client(this, options);
        this.clients.push(client);
        await client.open();
        return client;
    }

    /** Ends its clients, then itself by SIGTERM, and checks that it ends in good order. */
    async stop() {
        await Promise.all(this.clients.map((client) => client.close()));
        this.process.kill("SIGTERM");
        const { status, signal } = await within("the host to end", this.exited);
        assert.deepEqual({ status, signal }, { status: 0, signal: null }, this.log);
    }
}

/** Makes a certificate store of a client with a key and a certificate of its own. */
export async function makeClientPki(folder = makeFolder("client-pki")) {
    const store = new OPCUACertificateManager({
        rootFolder: folder, automaticallyAcceptUnknownCertificate: true,
    });
    await store.initialize();
    return { store, folder, certificate: join(folder, "own/certs/client_certificate.pem") };
}

async function makeCommonPki() {
    if (!process.env.TALVENSOR_KEPT_KEYS) {
        return makeClientPki();
    }
    const key = new KeptKey("endpoint-client");
    const folder = join(makeFolder("client-pki"), "pki");
    key.giveTo(folder);
    const pki = await makeClientPki(folder);
    await makeCertificate(pki);
    key.takeFrom(folder);
    return pki;
}

let commonPki;
/** Returns the store of all clients that are given none. */
export function getCommonPki() {
    commonPki ??= makeCommonPki();
    return commonPki;
}

/** Makes the key and certificate of a store now, for a host to trust; returns the certificate's file. */
export async function makeCertificate(pki) {
    const { store, certificate } = await pki;
    const client = makeOpcUaClient(store, {});
    await client.createDefaultCertificate();
    return certificate;
}

const applicationUri = "urn:talvensor:endpoint-test";

function makeOpcUaClient(store, { policy = "None", mode, options = {} }) {
    return opcua.OPCUAClient.create({
        applicationName: "endpoint-test",
        applicationUri,
        clientCertificateManager: store,
        securityPolicy: SecurityPolicy[policy],
        securityMode: mode ?? (policy === "None" ? MessageSecurityMode.None : MessageSecurityMode.SignAndEncrypt),
        endpointMustExist: false,
        keepSessionAlive: false,
        requestedSessionTimeout: 600_000,
        defaultTransactionTimeout: longestWait,
        connectionStrategy: { maxRetry: 0, initialDelay: 50, maxDelay: 100 },
        transportSettings: { maxMessageSize: 64 * 1024 * 1024, maxChunkCount: 2_000 },
        ...options,
    });
}

class Client {
    /**
     * - policy: "None", "Basic256Sha256", "Aes128_Sha256_RsaOaep", "Aes256_Sha256_RsaPss"
     * - user, password
     * - identity: a whole user identity, instead
     * - pki: see makeClientPki
     * - options: further ones of node-opcua's client
     * - session: false connects without a session
     */
    constructor(host, options) {
        this.host = host;
        this.options = options;
        this.subscriptions = [];
    }

    async open() {
        const { store } = await (this.options.pki ?? getCommonPki());
        this.opcua = makeOpcUaClient(store, this.options);
        await within("the connection", this.opcua.connect(this.options.url ?? this.host.url));
        if (this.options.session === false) {
            return;
        }
        const { user, password, identity } = this.options;
        const named = { type: opcua.UserTokenType.UserName, userName: user, password };
        const session = this.opcua.createSession(identity ?? (user === undefined ? undefined : named));
        this.session = await within("the session", session);
        this.namespaces = await this.session.readNamespaceArray();
    }

    /** May be called again. */
    async close() {
        const opened = this.opcua;
        this.opcua = undefined;
        if (opened) {
            await within("the client's end", opened.disconnect());
        }
    }

    node(uri, identifier) {
        const index = this.namespaces.indexOf(uri);
        assert.notEqual(index, -1, `there is no namespace ${uri}`);
        return opcua.coerceNodeId(`ns=${index};${typeof identifier === "number" ? "i" : "s"}=${identifier}`);
    }

    get folder() {
        return this.node(hostUri, 1);
    }

    read(nodeId, attribute = "Value") {
        return this.session.read({ nodeId, attributeId: AttributeIds[attribute] });
    }

    async browse(nodeId, options = {}) {
        const { statusCode, references } = await this.session.browse({
            nodeId, browseDirection: opcua.BrowseDirection.Forward, includeSubtypes: true,
            referenceTypeId: "HierarchicalReferences", resultMask: 63, ...options,
        });
        return { statusCode, references: references ?? [] };
    }

    /** Calls a method with any inputs; returns the whole result. */
    callMethod(objectId, methodId, inputArguments = []) {
        return this.session.call({ objectId, methodId, inputArguments });
    }

    /** Calls Greet of the example module's object. */
    async greet(name) {
        const uri = "urn:Example:Greeter";
        const inputs = [new Variant({ dataType: DataType.String, value: name })];
        const result = await this.callMethod(this.node(uri, "Greeter"), this.node(uri, 2), inputs);
        if (!result.statusCode.isGood()) {
            throw new CallError("Greet", result);
        }
        return result.outputArguments[0].value;
    }

    /** Makes a file system of the session's own; returns its id. */
    async createFileSystem() {
        const result = await this.callMethod(this.folder, this.node(hostUri, 2));
        if (!result.statusCode.isGood()) {
            throw new CallError("CreateFileSystem", result);
        }
        return result.outputArguments[0].value;
    }

    /** Makes a file system of the session's own and follows its events. */
    async createFiles() {
        return this.files(await this.createFileSystem());
    }

    /** Follows the events of the file system with that id, of the shared one by default. */
    async files(nodeId = this.node(hostUri, "FileSystem")) {
        const files = new Files(this, nodeId);
        await files.listen();
        return files;
    }

    /**
     * Calls `hear(event)` for the events of a node, in their order. An event is an object with the
     * fields' values, and its type's name as `type` ("AckEvent"; the id as text for types that are
     * not the file system's). Returns what ends it.
     */
    async subscribe(nodeId, hear, { queueSize = 200_000 } = {}) {
        const subscription = await this.session.createSubscription2({
            requestedPublishingInterval: 10,
            requestedLifetimeCount: 12_000,
            requestedMaxKeepAliveCount: 1_000,
            maxNotificationsPerPublish: 0,
            publishingEnabled: true,
        });
        this.subscriptions.push(subscription);
        const selected = this.selectClauses();
        const item = await subscription.monitor(
            { nodeId, attributeId: AttributeIds.EventNotifier },
            {
                samplingInterval: 0, queueSize, discardOldest: true,
                filter: new opcua.EventFilter({ selectClauses: selected.clauses }),
            },
            opcua.TimestampsToReturn.Neither,
            opcua.MonitoringMode.Reporting
        );
        if (!item.statusCode.isGood()) {
            throw new Error(`Cannot monitor ${nodeId}: ${item.statusCode}`);
        }
        item.on("changed", (values) => hear(this.toEvent(selected.names, values)));
        return subscription;
    }

    selectClauses() {
        const clause = (typeDefinitionId, namespaceIndex, name) => ({
            typeDefinitionId, browsePath: [{ namespaceIndex, name }], attributeId: AttributeIds.Value,
        });
        const names = [...baseFields];
        const clauses = baseFields.map((name) => clause(opcua.coerceNodeId("i=2041"), 0, name));
        const index = this.namespaces.indexOf(fileSystemUri);
        for (const { id, fields } of Object.values(eventTypes)) {
            names.push(...fields);
            clauses.push(...fields.map((name) => clause(this.node(fileSystemUri, id), index, name)));
        }
        return { names, clauses };
    }

    toEvent(names, values) {
        const event = {};
        if (values.length === 1) {
            // The event that tells of lost ones carries its type alone, whatever was selected.
            event.EventType = values[0].value;
        } else {
            names.forEach((name, i) => (event[name] = values[i].value));
        }
        const index = this.namespaces.indexOf(fileSystemUri);
        const found = Object.entries(eventTypes).find(
            ([, { id }]) => event.EventType?.namespace === index && event.EventType.value === id
        );
        event.type = found?.[0] ?? String(event.EventType);
        return event;
    }
}

/** A call that failed, with everything in its answer. */
export class CallError extends Error {
    constructor(name, result) {
        super(`${name}: ${result.statusCode}`);
        this.status = result.statusCode.name;
        this.argumentStatuses = (result.inputArgumentResults ?? []).map((status) => status.name);
    }
}

/** A file system node: its methods by name, its events in the order in which they came. */
export class Files {
    constructor(client, nodeId) {
        this.client = client;
        this.nodeId = nodeId;
        this.events = [];
        this.wakers = [];
    }

    async listen() {
        this.subscription = await this.client.subscribe(this.nodeId, (event) => {
            this.events.push(event);
            this.wakers.splice(0).forEach((wake) => wake());
        });
    }

    /** Returns the id of the type's method. */
    method(name) {
        return this.client.node(fileSystemUri, methods[name].id);
    }

    /** Returns inputs as the model declares them; variants stay as they are. */
    variants(name, inputs) {
        const declared = methods[name].inputs;
        return inputs.map((value, i) => {
            if (value instanceof Variant) {
                return value;
            }
            const isArray = Array.isArray(declared[i]);
            const dataType = isArray ? declared[i][0] : declared[i];
            return new Variant({
                dataType, value, arrayType: isArray ? VariantArrayType.Array : VariantArrayType.Scalar,
            });
        });
    }

    /** Calls a method; returns the whole result. */
    tryCall(name, ...inputs) {
        return this.client.callMethod(this.nodeId, this.method(name), this.variants(name, inputs));
    }

    /** Calls a method; returns its output, if there is one. Throws CallError. */
    async call(name, ...inputs) {
        const result = await this.tryCall(name, ...inputs);
        if (result.statusCode.value !== StatusCodes.Good.value) {
            throw new CallError(name, result);
        }
        return result.outputArguments?.[0]?.value;
    }

    /** Takes the next event off the list; with a type, checks that it is of this one. */
    async nextEvent(type) {
        const end = Date.now() + longestWait;
        while (this.events.length === 0) {
            const woken = new Promise((resume) => this.wakers.push(resume));
            await within(type ?? "an event", woken, end - Date.now());
        }
        const event = this.events.shift();
        if (type !== undefined) {
            assert.equal(event.type, type);
        }
        return event;
    }

    /** Waits until everything requested so far is done; `Exists` is always answered. */
    async barrier() {
        await this.call("Exists", this.client.host.root);
        for (;;) {
            const event = await this.nextEvent();
            if (event.type === "ExistsResultEvent") {
                return;
            }
        }
    }

    /** Uploads in one call, which succeeds. */
    async upload(path, content, time = noTime, permissions = 0) {
        const handle = await this.call("UploadFile", path, Buffer.from(content), time, permissions);
        const event = await this.nextEvent("AckEvent");
        assert.deepEqual([event.FileHandle, event.Result], [handle, 0]);
    }
}

// For clients in processes of their own, which know no more than a host's url and root.
export { Client };
