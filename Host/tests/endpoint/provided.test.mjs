// Nodes that a module provides while clients look at them, with the module of tests/modules/Tree.

import assert from "node:assert/strict";
import { after, before, describe, it } from "node:test";
import { CallError, opcua, opcuaTypes, programs, startHost, waitFor, within } from "./harness.mjs";

const { AttributeIds, DataType, Variant, makeBrowsePath } = opcua;
const treeModel = programs.treeModule.replace(/lib([^/]*)\.so$/, "$1.NodeSet2.xml");
const treeUri = "urn:Talvensor:Test:Tree";
const root = "i=16314";

/** A session with what the tests do with it. */
class TreeClient {
    constructor(client) {
        this.client = client;
        this.session = client.session;
    }

    /** Returns the identifier of a key. */
    id(key) {
        return key === "" ? root : this.client.node(treeUri, key);
    }

    async call(object, method, ...inputs) {
        const result = await this.client.callMethod(object, method, inputs);
        if (!result.statusCode.isGood()) {
            throw new CallError(String(method), result);
        }
        return result.outputArguments?.[0]?.value;
    }

    text(value) {
        return new Variant({ dataType: DataType.String, value });
    }

    /** Gives the module commands; returns the answer to the last one. */
    async control(...commands) {
        let answer;
        for (const command of commands) {
            answer = await this.call(root, this.client.node(treeUri, 10), this.text(command));
        }
        return answer;
    }

    /** Returns how often the module has done an operation so far. */
    async count(operation) {
        return Number(await this.control(`count ${operation}`));
    }

    echo(key, text) {
        return this.call(this.id(key), this.client.node(treeUri, 20), this.text(text));
    }

    /** Returns one page of references and the continuation point. */
    browse(key, options = {}) {
        return this.session.browse({
            nodeId: this.id(key), browseDirection: opcua.BrowseDirection.Forward, includeSubtypes: true,
            referenceTypeId: "HierarchicalReferences", resultMask: 63, ...options,
        });
    }

    /** Returns the names of all references, page by page. */
    async list(key, options = {}) {
        const names = [];
        let page = await this.browse(key, { referenceTypeId: "Organizes", ...options });
        while (page.statusCode.isGood()) {
            names.push(...(page.references ?? []).map((each) => each.browseName.name));
            if (!page.continuationPoint?.length) {
                return names;
            }
            page = await this.session.browseNext(page.continuationPoint, false);
        }
        throw new Error(page.statusCode.name);
    }

    /** Returns the value of an attribute with its status. */
    read(key, attributeId = AttributeIds.Value) {
        return this.session.read({ nodeId: this.id(key), attributeId });
    }

    /** Returns the name of the status of an attribute. */
    async status(key, attributeId = AttributeIds.BrowseName) {
        return (await this.read(key, attributeId)).statusCode.name;
    }

    /** Returns the targets of a path of names in namespaces, "/2:a/2:b". */
    async translate(key, path) {
        const { statusCode, targets } = await this.session.translateBrowsePath(makeBrowsePath(this.id(key), path));
        return statusCode.isGood() ? targets.map((each) => String(each.targetId)) : statusCode.name;
    }

    /** Makes a subscription with one item; the item notes its values in `seen`. */
    async monitor(key, attributeId, samplingInterval = 50) {
        const subscription = await this.session.createSubscription2({
            requestedPublishingInterval: 10, requestedLifetimeCount: 12_000, requestedMaxKeepAliveCount: 1_000,
            publishingEnabled: true,
        });
        const item = await subscription.monitor(
            { nodeId: this.id(key), attributeId }, { samplingInterval, queueSize: 10, discardOldest: true },
            opcua.TimestampsToReturn.Neither, opcua.MonitoringMode.Reporting
        );
        const seen = [];
        item.on("changed", (value) => seen.push(value));
        return { subscription, item, seen };
    }
}

/** Starts a host with the module, and opens a session. */
async function startTree(options = {}) {
    const host = await startHost({ flags: ["--module", programs.treeModule, "--model", treeModel], ...options });
    const tree = new TreeClient(await host.connect());
    return { host, tree };
}

const isOver = (name) => name !== "BadResourceUnavailable";

describe("A host with a module that provides nodes", () => {
    let host;
    let tree;
    let prefix;
    before(async () => {
        ({ host, tree } = await startTree());
        prefix = tree.client.namespaces.indexOf(treeUri);
        await tree.control("add a/", "add a/b/", "add a/one", "add a/two", "add a/b/deep");
    });
    after(() => host.stop());

    it("has their object in the place of the library's, with the library's number", async () => {
        for (const parent of ["i=85", "i=2253"]) {
            const { references } = await tree.client.browse(parent);
            const found = references.filter((each) => String(each.nodeId) === "ns=0;i=16314");
            assert.deepEqual(found.map((each) => String(each.browseName)), ["FileSystem"], parent);
        }
        const orphan = await tree.session.read({ nodeId: "i=16348", attributeId: AttributeIds.BrowseName });
        assert.equal(orphan.statusCode.name, "BadNodeIdUnknown");
    });

    it("shows members, methods and entries below each node", async () => {
        const methods = ["CreateDirectory", "CreateFile", "Delete", "MoveOrCopy"];
        const names = async (key) =>
            (await tree.client.browse(tree.id(key))).references.map((each) => each.browseName.name).sort();
        assert.deepEqual(await names("a/"), ["Count", ...methods, "Echo", "Info", "b", "one", "two"].sort());
        assert.deepEqual(await names(""), ["Control", "Count", ...methods, "Info", "a"].sort());
        assert.deepEqual(
            await names("a/one"),
            ["Close", "GetPosition", "Open", "Read", "SetPosition", "Size", "Text", "Write"]
        );
    });

    it("leads from each node to its type and upwards", async () => {
        const both = { browseDirection: opcua.BrowseDirection.Inverse, referenceTypeId: "HierarchicalReferences" };
        const parentOf = async (key) => {
            const { references } = await tree.client.browse(tree.id(key), both);
            return references.map((each) => [String(each.referenceTypeId), String(each.nodeId)]);
        };
        assert.deepEqual(await parentOf("a/one"), [["ns=0;i=35", String(tree.id("a/"))]]);
        assert.deepEqual(await parentOf("a/"), [["ns=0;i=35", "ns=0;i=16314"]]);
        assert.deepEqual(await parentOf("a/one|Size"), [["ns=0;i=46", String(tree.id("a/one"))]]);
        assert.deepEqual(await parentOf("a/|Info"), [["ns=0;i=47", String(tree.id("a/"))]]);
        const { references } = await tree.client.browse(tree.id("a/one"), { referenceTypeId: "HasTypeDefinition" });
        assert.deepEqual(references.map((each) => String(each.nodeId)), [`ns=${prefix};i=3`]);
    });

    it("reads values and attributes", async () => {
        assert.equal((await tree.read("a/one|Text")).value.value, "text of a/one");
        assert.deepEqual((await tree.read("a/one|Size")).value.value, [0, 5]);
        assert.deepEqual((await tree.read("a/|Count")).value.value, [0, 3]);
        assert.equal((await tree.read("a/one", AttributeIds.DisplayName)).value.value.text, "one");
        assert.equal(String((await tree.read("a/one|Size", AttributeIds.DataType)).value.value), "ns=0;i=9");
        const part = await tree.session.read({
            nodeId: tree.id("a/one|Text"), attributeId: AttributeIds.Value,
            indexRange: "0:3",
        });
        assert.equal(part.value.value, "text");
    });

    it("has no node for keys that nothing has, or that have a wrong form", async () => {
        const wrong = ["a/none", "none/", "a//b", "a/one|None", "/a", "", "a/b/\u0000", "x".repeat(5_000),
            "a/\u{10F7C3}\u{10F7A9}"];
        for (const key of wrong) {
            const nodeId = tree.client.node(treeUri, key);
            const { statusCode } = await tree.session.read({ nodeId, attributeId: AttributeIds.BrowseName });
            assert.equal(statusCode.name, "BadNodeIdUnknown", key);
            assert.equal((await tree.client.browse(nodeId)).statusCode.name, "BadNodeIdUnknown", key);
        }
        assert.equal(await tree.status("a/none|Size", AttributeIds.Value), "BadNodeIdUnknown");
    });

    it("translates paths down and up", async () => {
        const path = `/${prefix}:a/${prefix}:b/${prefix}:deep/Size`;
        assert.deepEqual(await tree.translate("", path), [String(tree.id("a/b/deep|Size"))]);
        assert.deepEqual(await tree.translate("a/", "/Echo"), "BadNoMatch");
        assert.deepEqual(await tree.translate("a/", `/${prefix}:Echo`), [`ns=${prefix};i=20`]);
        assert.deepEqual(await tree.translate("a/one", "/Open"), ["ns=0;i=11580"]);
        assert.deepEqual(await tree.translate("a/", `/${prefix}:none`), "BadNoMatch");
        const up = makeBrowsePath(tree.id("a/b/deep"), `/${prefix}:b`);
        up.relativePath.elements[0].isInverse = true;
        const { targets } = await tree.session.translateBrowsePath(up);
        assert.deepEqual(targets.map((each) => String(each.targetId)), [String(tree.id("a/b/"))]);
    });

    it("keeps names that are not UTF-8", async () => {
        const name = "\u{10F7FF}x";
        await tree.control(`add a/b/${name}`);
        assert.deepEqual(await tree.list("a/b/"), ["deep", name]);
        assert.equal((await tree.read(`a/b/${name}|Text`)).value.value, `text of a/b/${name}`);
        await tree.control(`remove a/b/${name}`);
    });

    it("calls methods of the module's types and of the base model's", async () => {
        assert.equal(await tree.echo("a/", "hello"), "a/ hello");
        const mode = new Variant({ dataType: DataType.Byte, value: 1 });
        assert.equal(await tree.call(tree.id("a/one"), "i=11580", mode), 41);
        const made = await tree.call(tree.id("a/"), "i=13387", tree.text("new"));
        assert.equal(String(made), String(tree.id("a/new/")));
        assert.equal(await tree.status("a/new/"), "Good");
        await tree.control("remove a/new/");
        assert.equal(await tree.status("a/new/"), "BadNodeIdUnknown");
    });

    it("calls methods without listing entries and without asking whether the object exists", async () => {
        const before = [await tree.count("look:a/"), await tree.count("exists:a/")];
        await tree.echo("a/", "hello");
        assert.deepEqual([await tree.count("look:a/"), await tree.count("exists:a/")], before);
    });

    it("refuses calls with wrong arguments, methods and objects", async () => {
        const refuse = async (object, method, inputs, status, argumentStatuses = []) => {
            const result = await tree.client.callMethod(object, method, inputs);
            assert.equal(result.statusCode.name, status);
            assert.deepEqual((result.inputArgumentResults ?? []).map((each) => each.name), argumentStatuses);
            return result;
        };
        const echo = tree.client.node(treeUri, 20);
        const mode = new Variant({ dataType: DataType.Byte, value: 1 });
        await refuse(tree.id("a/one"), "i=11580", [], "BadArgumentsMissing");
        await refuse(tree.id("a/one"), "i=11580", [mode, mode], "BadTooManyArguments");
        await refuse(tree.id("a/one"), "i=11580", [tree.text("1")], "BadInvalidArgument", ["BadTypeMismatch"]);
        await refuse(tree.id("a/one"), echo, [tree.text("hello")], "BadMethodInvalid");
        await refuse(tree.id("a/one|Size"), echo, [tree.text("hello")], "BadNodeClassInvalid");
        await refuse(tree.id("a//one"), echo, [tree.text("hello")], "BadNodeIdUnknown");
        for (const object of ["i=85", "i=2253", "i=13353"]) {
            const { statusCode } = await tree.client.callMethod(object, "i=11580", [mode]);
            assert.ok(["BadNotExecutable", "BadNodeClassInvalid"].includes(statusCode.name), statusCode.name);
        }
        const { inputArgumentDiagnosticInfos } = await refuse(
            tree.id("a/none"), "i=11580", [mode], "BadNotFound"
        );
        assert.equal(inputArgumentDiagnosticInfos[0].additionalInfo, "No such file or directory");
    });

    it("refuses clients that delete provided nodes or add references", async () => {
        const deleting = new opcuaTypes.DeleteNodesRequest({
            nodesToDelete: [{ nodeId: tree.id("a/one"), deleteTargetReferences: true }],
        });
        const deleted = await tree.session.performMessageTransaction(deleting);
        assert.equal(deleted.results[0].name, "BadUserAccessDenied");
        const adding = new opcuaTypes.AddReferencesRequest({
            referencesToAdd: [{
                sourceNodeId: tree.id("a/one"), referenceTypeId: "i=35", isForward: true,
                targetNodeId: tree.id("a/two"), targetNodeClass: opcua.NodeClass.Object,
            }],
        });
        const added = await tree.session.performMessageTransaction(adding);
        assert.equal(added.results[0].name, "BadUserAccessDenied");
        assert.deepEqual(await tree.list("a/"), ["b", "one", "two"]);
    });

    it("tells who browses what the provider denies", async () => {
        await tree.control("add a/closed/", "deny a/closed/");
        assert.equal((await tree.browse("a/closed/")).statusCode.name, "BadUserAccessDenied");
        await tree.control("release", "remove a/closed/");
    });
});

describe("A client that browses page by page", () => {
    let host;
    let tree;
    before(async () => ({ host, tree } = await startTree()));
    after(() => host.stop());

    const names = (from, to) =>
        Array.from({ length: to - from }, (_, i) => `leaf${String(from + i).padStart(6, "0")}`);

    /** Begins with a page of so many entries. */
    async function begin(key, size, options = {}) {
        const request = new opcuaTypes.BrowseRequest({
            requestedMaxReferencesPerNode: size,
            nodesToBrowse: [{
                nodeId: tree.id(key), browseDirection: opcua.BrowseDirection.Forward, includeSubtypes: true,
                referenceTypeId: "i=35", resultMask: 63, ...options,
            }],
        });
        return (await tree.session.performMessageTransaction(request)).results[0];
    }

    /** Returns the names on all pages that follow. */
    async function goOn(page) {
        const found = [];
        for (let next = page; next.continuationPoint?.length;) {
            next = await tree.session.browseNext(next.continuationPoint, false);
            assert.equal(next.statusCode.name, "Good");
            found.push(...next.references.map((each) => each.browseName.name));
        }
        return found;
    }

    it("gets each entry once, in the provider's order", async () => {
        await tree.control("add p/", "fill p/ 2500");
        assert.deepEqual(await tree.list("p/"), names(0, 2500));
        // And of the pages, the provider was asked for the entries once.
        assert.equal(await tree.count("list:p/"), 1);
    });

    it("goes on behind an entry that is gone, and gets those that have come", async () => {
        await tree.control("add q/", "fill q/ 30");
        const page = await begin("q/", 10);
        await tree.control("remove q/leaf000009", "remove q/leaf000015", "add q/new");
        const expected = [...names(10, 15), ...names(16, 30), "new"];
        assert.deepEqual(await goOn(page), expected);
        assert.deepEqual(await tree.list("q/"), [...names(0, 9), ...names(10, 15), ...names(16, 30), "new"]);
    });

    it("goes on when everything is gone and other entries have come", async () => {
        await tree.control("add r/", "fill r/ 20");
        const page = await begin("r/", 10);
        for (let i = 0; i < 20; ++i) {
            await tree.control(`remove r/leaf${String(i).padStart(6, "0")}`);
        }
        await tree.control("add r/other");
        assert.deepEqual(await goOn(page), ["other"]);
    });

    it("hears that the node itself is gone", async () => {
        await tree.control("add s/", "fill s/ 20");
        const page = await begin("s/", 10);
        await tree.control("remove s/");
        const next = await tree.session.browseNext(page.continuationPoint, false);
        assert.equal(next.statusCode.name, "BadNodeIdUnknown");
    });

    // Of a node without entries nothing is kept that could be shown meanwhile.
    it("hears that the provider does not list any more, whichever reference it has come to", async () => {
        await tree.control("add t/");
        const all = { referenceTypeId: "i=0", browseDirection: opcua.BrowseDirection.Both };
        const { references } = await tree.browse("t/", all);
        const halts = [["deny", "BadUserAccessDenied"], ["hang", "BadResourceUnavailable"]];
        for (let size = 1; size < references.length; ++size) {
            for (const [halt, status] of halts) {
                const page = await begin("t/", size, all);
                assert.equal(page.references.length, size);
                await tree.control(`${halt} t/`);
                const next = await tree.session.browseNext(page.continuationPoint, false);
                assert.equal(next.statusCode.name, status, `${halt} behind ${size}`);
                await tree.control("release");
                await waitFor("an answer", async () => (await tree.browse("t/")).statusCode.isGood());
            }
        }
    });

    it("hears that nothing is listed if it asks for other classes than those of the entries", async () => {
        await tree.control("add u/", "deny u/");
        const { statusCode } = await tree.browse("u/", { nodeClassMask: opcua.NodeClassMask.Variable });
        assert.equal(statusCode.name, "BadUserAccessDenied");
        await tree.control("release");
    });
});

describe("A monitored item of a provided node", () => {
    let host;
    let tree;
    before(async () => {
        ({ host, tree } = await startTree());
        await tree.control("add a/");
    });
    after(() => host.stop());

    it("gets the values that the provider reads", async () => {
        const { subscription, seen } = await tree.monitor("a/|Count", AttributeIds.Value);
        await waitFor("the first value", () => seen.length === 1);
        await tree.control("add a/x");
        await waitFor("the next value", () => seen.length === 2);
        assert.deepEqual(seen.map((each) => each.value.value), [[0, 0], [0, 1]]);
        await subscription.terminate();
    });

    it("hears that its node is gone and that it is back", async () => {
        await tree.control("add a/y");
        const { subscription, seen } = await tree.monitor("a/y|Size", AttributeIds.Value);
        await waitFor("the first value", () => seen.length === 1);
        await tree.control("remove a/y");
        await waitFor("the end", () => seen.length === 2);
        await tree.control("add a/y");
        await waitFor("the value", () => seen.length === 3);
        assert.deepEqual(seen.map((each) => each.statusCode.name), ["Good", "BadNodeIdUnknown", "Good"]);
        await subscription.terminate();
    });

    // These hang on the node itself and not on a timer.
    it("of another attribute outlives its node", async () => {
        for (const attributeId of [AttributeIds.BrowseName, AttributeIds.DisplayName]) {
            await tree.control("add a/z");
            const first = await tree.monitor("a/z", attributeId, 0);
            const second = await tree.monitor("a/z", attributeId, 0);
            await waitFor("the first values", () => first.seen.length === 1 && second.seen.length === 1);
            await tree.control("remove a/z");
            assert.equal(await tree.status("a/z"), "BadNodeIdUnknown");
            await first.subscription.terminate();
            await tree.control("add a/z");
            assert.equal(await tree.status("a/z"), "Good");
            await tree.control("remove a/z");
            await second.subscription.terminate();
        }
    });

    it("cannot be made for a node that is not there", async () => {
        const { subscription, item } = await tree.monitor("a/none|Size", AttributeIds.Value);
        assert.equal(item.statusCode.name, "BadNodeIdUnknown");
        await subscription.terminate();
    });
});

describe("A provider that does not answer", () => {
    let host;
    let tree;
    before(async () => {
        ({ host, tree } = await startTree());
        await tree.control("add a/", "add a/one", "add never/", "add lane1/", "add lane1/one");
    });
    after(() => host.stop());

    it("is asked no more until it answers, and others are served meanwhile", async () => {
        assert.deepEqual(await tree.list("a/"), ["one"]);
        await tree.control("hang a/", "hang a/one", "hang never/");
        assert.equal(await tree.status("a/one|Size", AttributeIds.Value), "BadResourceUnavailable");
        const asked = await tree.count("read");
        for (let i = 0; i < 20; ++i) {
            assert.equal(await tree.status("a/one|Size", AttributeIds.Value), "BadResourceUnavailable");
            assert.equal((await tree.read("lane1/one|Text")).value.value, "text of lane1/one");
        }
        assert.equal(await tree.count("read:a/one|Size"), 1);
        assert.equal(await tree.count("read"), asked + 20);
        // What is known is still shown; what is not is no empty list.
        assert.deepEqual(await tree.list("a/"), ["one"]);
        assert.equal((await tree.browse("never/")).statusCode.name, "BadResourceUnavailable");
        assert.equal(await tree.echo("a/", "calls go on"), "a/ calls go on");
        await tree.control("release");
        await waitFor("an answer", async () => isOver(await tree.status("a/one|Size", AttributeIds.Value)));
        assert.deepEqual((await tree.read("a/one|Size")).value.value, [0, 5]);
        assert.deepEqual(await waitFor("the entries", () => tree.list("never/").catch(() => null)), []);
    });

    it("that is slow gets no more of the host's time than its share", async () => {
        await tree.control("slow a/one 10");
        const nodesToRead = Array.from({ length: 500 }, () => ({
            nodeId: tree.id("a/one|Size"), attributeId: AttributeIds.Value,
        }));
        const before = await tree.count("read");
        const values = await tree.session.read(nodesToRead);
        const answered = values.filter((each) => each.statusCode.name === "Good").length;
        const refused = values.filter((each) => each.statusCode.name === "BadResourceUnavailable").length;
        assert.equal(answered + refused, 500);
        assert.ok(answered > 0 && answered < 50, String(answered));
        assert.ok((await tree.count("read")) - before < 50);
        await tree.control("release");
    });
});

describe("A host whose provider never answers", () => {
    it("ends all the same, and says so", async () => {
        const flags = ["--module", programs.treeModule, "--model", treeModel, "--drain", "1s"];
        const host = await startHost({ flags });
        const tree = new TreeClient(await host.connect());
        await tree.control("add a/", "hang a/");
        assert.equal(await tree.status("a/|Count", AttributeIds.Value), "BadResourceUnavailable");
        await Promise.all(host.clients.map((each) => each.close()));
        host.process.kill("SIGTERM");
        const { status } = await within("the host to end", host.exited);
        assert.equal(status, 5);
        assert.match(host.log, /A look-up of provided nodes \(lane 0\) has not ended/);
    });
});

/** Returns random numbers below a bound, the same ones for the same seed. */
function makeRandom(seed) {
    let state = seed;
    return (bound) => {
        state = (Math.imul(state, 1_103_515_245) + 12_345) >>> 0;
        return (state >>> 8) % bound;
    };
}

/** Does operations of any kind on nodes that come and go; each must be answered. */
class RandomClient {
    constructor(tree, seed) {
        this.tree = tree;
        this.random = makeRandom(seed);
        this.pages = [];
        this.items = [];
        this.statuses = new Set();
    }

    pick(list) {
        return list[this.random(list.length)];
    }

    key() {
        const branch = this.pick(["", "a/", "b/", "a/c/", "lane1/"]);
        return this.random(4) === 0 ? branch : `${branch}leaf${String(this.random(40)).padStart(6, "0")}`;
    }

    note(status) {
        this.statuses.add(status.name);
    }

    async change() {
        await this.tree.control(`${this.pick(["add", "add", "remove"])} ${this.key() || "a/"}`);
    }

    async browse() {
        const request = new opcuaTypes.BrowseRequest({
            requestedMaxReferencesPerNode: this.pick([0, 1, 7]),
            nodesToBrowse: [{
                nodeId: this.tree.id(this.key()), browseDirection: this.random(3), includeSubtypes: true,
                referenceTypeId: this.pick(["i=33", "i=35", "i=46", "i=0"]), resultMask: this.random(64),
            }],
        });
        const [result] = (await this.tree.session.performMessageTransaction(request)).results;
        this.note(result.statusCode);
        this.keepPage(result);
    }

    keepPage(result) {
        if (result.continuationPoint?.length) {
            this.pages.push(result.continuationPoint);
        }
    }

    async browseNext() {
        if (this.pages.length > 0) {
            const [page] = this.pages.splice(this.random(this.pages.length), 1);
            const result = await this.tree.session.browseNext(page, this.random(4) === 0);
            this.note(result.statusCode);
            this.keepPage(result);
        }
    }

    async read() {
        const nodesToRead = Array.from({ length: 5 }, () => ({
            nodeId: this.tree.id(this.key() + this.pick(["", "|Size", "|Count", "|Text", "|Info"])),
            attributeId: this.pick([AttributeIds.Value, AttributeIds.Value, 1 + this.random(27)]),
        }));
        (await this.tree.session.read(nodesToRead)).forEach((each) => this.note(each.statusCode));
    }

    async translate() {
        const prefix = this.tree.client.namespaces.indexOf(treeUri);
        const leaf = `leaf${String(this.random(40)).padStart(6, "0")}`;
        const path = this.pick([`/${prefix}:a/${prefix}:c`, `/${prefix}:${leaf}/Size`, `/${prefix}:Info`, "/Open"]);
        await this.tree.translate(this.key(), path);
    }

    async call() {
        const method = this.pick([this.tree.client.node(treeUri, 20), "i=11580", "i=13387", "i=13393"]);
        const inputs = this.pick([[], [this.tree.text("x")], [new Variant({ dataType: DataType.Byte, value: 1 })]]);
        const result = await this.tree.client.callMethod(this.tree.id(this.key()), method, inputs);
        this.note(result.statusCode);
    }

    async monitor() {
        if (this.items.length < 5) {
            const key = this.key() + this.pick(["", "|Size", "|Text"]);
            const attributeId = this.pick([AttributeIds.Value, AttributeIds.BrowseName, AttributeIds.DisplayName]);
            this.items.push((await this.tree.monitor(key, attributeId, this.pick([0, 50]))).subscription);
        } else {
            await this.items.splice(this.random(this.items.length), 1)[0].terminate();
        }
    }

    async remove() {
        const deleting = new opcuaTypes.DeleteNodesRequest({
            nodesToDelete: [{ nodeId: this.tree.id(this.key()), deleteTargetReferences: true }],
        });
        const { results } = await this.tree.session.performMessageTransaction(deleting);
        assert.equal(results[0].name, "BadUserAccessDenied");
    }

    async run(count) {
        const operations = ["change", "change", "browse", "browse", "browseNext", "browseNext", "read", "translate",
            "call", "monitor", "remove"];
        for (let i = 0; i < count; ++i) {
            await this[this.pick(operations)]();
        }
        await Promise.all(this.items.map((each) => each.terminate()));
    }
}

describe("A host whose provided nodes come and go", () => {
    it("answers operations of any kind on them", async () => {
        const { host, tree } = await startTree();
        after(() => host.stop());
        await tree.control("add a/", "add b/", "add a/c/", "add lane1/", "fill a/ 40", "fill a/c/ 20");
        const clients = [tree];
        for (let i = 0; i < 2; ++i) {
            clients.push(new TreeClient(await host.connect()));
        }
        const seed = Number(process.env.TALVENSOR_SEED ?? Date.now() % 1_000_000);
        console.log(`seed ${seed}`);
        const randoms = clients.map((each, i) => new RandomClient(each, seed + i));
        await Promise.all(randoms.map((each) => each.run(1_500)));
        const statuses = new Set(randoms.flatMap((each) => [...each.statuses]));
        for (const expected of ["Good", "BadNodeIdUnknown", "BadMethodInvalid", "BadNotFound"]) {
            assert.ok(statuses.has(expected), expected);
        }
        assert.ok(!statuses.has("BadInternalError"));
    });
});
