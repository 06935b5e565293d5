// The model that a host serves is the one in its file, node by node.

import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { after, before, describe, it } from "node:test";
import { fileSystemUri, hostUri, opcua, programs, startHost } from "./harness.mjs";

const { AttributeIds, BrowseDirection, NodeClass } = opcua;

/** Returns the elements of an XML text as { name, attributes, text, children }. No comments in texts. */
function parseXml(text) {
    const root = { children: [], text: "" };
    const open = [root];
    const unescape = (part) =>
        part.replace(/&(lt|gt|quot|apos|amp);/g, (_, name) => ({ lt: "<", gt: ">", quot: '"', apos: "'", amp: "&" })[name]);
    for (const [, closing, name, attributes, empty, content] of text
        .replace(/<!--[^]*?-->|<\?[^]*?\?>/g, "")
        .matchAll(/<(\/?)([\w:]+)([^>]*?)(\/?)>([^<]*)/g)) {
        if (closing) {
            open.pop();
        } else {
            const pairs = [...attributes.matchAll(/([\w:]+)="([^"]*)"/g)].map(([, key, value]) => [key, unescape(value)]);
            const element = { name, attributes: Object.fromEntries(pairs), text: unescape(content).trim(), children: [] };
            open.at(-1).children.push(element);
            if (!empty) {
                open.push(element);
            }
        }
    }
    return root.children[0];
}

const child = (element, name) => element.children.find((each) => each.name === name);
const children = (element, name) => element?.children.filter((each) => each.name === name) ?? [];

const document = parseXml(readFileSync(programs.model, "utf8"));
const aliases = Object.fromEntries(children(child(document, "Aliases"), "Alias").map((each) => [each.attributes.Alias, each.text]));
const nodes = document.children.filter((each) => each.name.startsWith("UA"));
const named = (name) => nodes.filter((each) => each.name === name);
const textOf = (element, name) => child(element, name)?.text ?? "";

describe("The model that a host serves", () => {
    let host;
    let client;
    before(async () => {
        host = await startHost();
        client = await host.connect();
    });
    after(() => host.stop());

    /** Returns the host's identifier for one of the file. */
    const toId = (text) => {
        const [, own, number] = /^(ns=1;)?i=(\d+)$/.exec(aliases[text] ?? text);
        return own ? client.node(fileSystemUri, Number(number)) : opcua.coerceNodeId(`i=${number}`);
    };
    const idOf = (node) => toId(node.attributes.NodeId);
    const valueOf = async (nodeId, attribute) => {
        const { statusCode, value } = await client.session.read({ nodeId, attributeId: AttributeIds[attribute] });
        assert.equal(statusCode.name, "Good", `${attribute} of ${nodeId}`);
        return value.value;
    };
    const plain = (list) => [...(list ?? [])];

    it("has the names, texts and classes of the file's nodes", async () => {
        assert.ok(nodes.length > 50);
        for (const node of nodes) {
            const nodeId = idOf(node);
            const [, own, name] = /^(1:)?(.*)$/.exec(node.attributes.BrowseName);
            const browseName = await valueOf(nodeId, "BrowseName");
            assert.deepEqual([client.namespaces[browseName.namespaceIndex] === fileSystemUri, browseName.name], [own !== undefined, name]);
            assert.equal(`UA${NodeClass[await valueOf(nodeId, "NodeClass")]}`, node.name);
            assert.equal((await valueOf(nodeId, "DisplayName")).text, textOf(node, "DisplayName"));
            assert.equal((await valueOf(nodeId, "Description")).text ?? "", textOf(node, "Description"), name);
        }
    });

    it("has the references of the file's nodes, modelling rules too", async () => {
        for (const node of nodes) {
            const { references } = await client.browse(idOf(node), { browseDirection: BrowseDirection.Both, referenceTypeId: "i=31" });
            const served = references.map((each) => `${each.isForward} ${each.referenceTypeId} ${each.nodeId}`);
            for (const { attributes, text } of children(child(node, "References"), "Reference")) {
                const expected = `${attributes.IsForward !== "false"} ${toId(attributes.ReferenceType)} ${toId(text)}`;
                assert.ok(served.includes(expected), `${node.attributes.BrowseName} has no ${expected}:\n${served.join("\n")}`);
            }
            // The host has no other nodes but instances.
            const ours = references.filter((each) => each.isForward && each.nodeId.namespace === idOf(node).namespace);
            const declared = children(child(node, "References"), "Reference").filter((each) => each.attributes.IsForward !== "false");
            const own = declared.filter((each) => toId(each.text).namespace === idOf(node).namespace);
            assert.equal(ours.length, own.length, node.attributes.BrowseName);
        }
    });

    it("has the types, dimensions and access levels of the file's variables", async () => {
        for (const node of named("UAVariable")) {
            const { DataType, ValueRank = "-1", ArrayDimensions = "", AccessLevel = "1", BrowseName } = node.attributes;
            const nodeId = idOf(node);
            assert.equal(String(await valueOf(nodeId, "DataType")), String(toId(DataType)), BrowseName);
            assert.equal(await valueOf(nodeId, "ValueRank"), Number(ValueRank), BrowseName);
            assert.equal(plain(await valueOf(nodeId, "ArrayDimensions")).join(), ArrayDimensions, BrowseName);
            assert.equal(await valueOf(nodeId, "AccessLevel"), Number(AccessLevel), BrowseName);
            assert.equal(await valueOf(nodeId, "UserAccessLevel"), Number(AccessLevel), BrowseName);
        }
    });

    it("defines its data types as the file does", async () => {
        for (const node of named("UADataType")) {
            const definition = await valueOf(idOf(node), "DataTypeDefinition");
            const fields = children(child(node, "Definition"), "Field");
            const isStructure = fields[0].attributes.Value === undefined;
            assert.equal(definition.constructor.name, isStructure ? "StructureDefinition" : "EnumDefinition", node.attributes.BrowseName);
            assert.deepEqual(
                definition.fields.map((each) => [each.name, each.description.text]),
                fields.map((each) => [each.attributes.Name, textOf(each, "Description")])
            );
            if (isStructure) {
                const types = fields.map(({ attributes: { DataType, ValueRank = "-1" } }) => [String(toId(DataType)), Number(ValueRank)]);
                assert.deepEqual(definition.fields.map((each) => [String(each.dataType), each.valueRank]), types);
            } else {
                const numbers = fields.map((each) => Number(each.attributes.Value));
                assert.deepEqual(definition.fields.map((each) => each.value[1]), numbers);
                assert.deepEqual(definition.fields.map((each) => each.displayName.text), fields.map((each) => each.attributes.Name));
            }
        }
    });

    it("is named with its version and day, like any namespace", async () => {
        const { references } = await client.browse("i=11715"); // Server.Namespaces
        const object = references.find((each) => each.browseName.name === fileSystemUri);
        assert.equal(String(object.typeDefinition), "ns=0;i=11616");
        const properties = (await client.browse(object.nodeId)).references;
        const values = {};
        for (const { nodeId, browseName } of properties) {
            values[browseName.name] = await valueOf(nodeId, "Value");
            assert.equal(client.namespaces[nodeId.namespace], hostUri);
        }
        const { ModelUri, Version, PublicationDate } = child(child(document, "Models"), "Model").attributes;
        assert.equal(values.NamespaceUri, ModelUri);
        assert.equal(values.NamespaceVersion, Version);
        assert.equal(values.NamespacePublicationDate.getTime(), Date.parse(PublicationDate));
        assert.equal(values.IsNamespaceSubset, false);
        assert.deepEqual(plain(values.StaticNodeIdTypes), [0]); // numbers
        assert.deepEqual(Object.keys(values).length, 7);
    });
});
