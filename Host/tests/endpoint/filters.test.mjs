// Filters of events: the ones that work, and that none harms the host.

import assert from "node:assert/strict";
import { after, afterEach, before, beforeEach, describe, it } from "node:test";
import { eventTypes, fileSystemUri, hostUri, opcua, opcuaTypes, startHost, waitFor } from "./harness.mjs";

const { AttributeIds, DataType, FilterOperator, StatusCodes, Variant, VariantArrayType } = opcua;
const baseEventType = opcua.coerceNodeId("i=2041");

describe("An event filter", () => {
    let host;
    let client;
    let subscription;
    let events; // of the items made by hand: the values of their fields
    let files;
    before(async () => {
        host = await startHost();
        client = await host.connect();
        files = await client.files();
    });
    after(() => host.stop());
    afterEach(() => subscription.terminate());
    beforeEach(async () => {
        subscription = await client.session.createSubscription2({
            requestedPublishingInterval: 10, requestedLifetimeCount: 12_000, requestedMaxKeepAliveCount: 1_000,
            maxNotificationsPerPublish: 0, publishingEnabled: true,
        });
        events = [];
        // The client would look for items that it made itself.
        subscription.onNotificationMessage = ({ notificationData }) => {
            const lists = (notificationData ?? []).flatMap((data) => data.events ?? []);
            events.push(...lists.map(({ eventFields }) => eventFields.map(({ value }) => value)));
        };
    });

    const type = (name) => client.node(fileSystemUri, eventTypes[name].id);
    const field = (typeDefinitionId, name, namespaceIndex = 0, more = {}) => ({
        typeDefinitionId, browsePath: [{ namespaceIndex, name }], attributeId: AttributeIds.Value, ...more,
    });
    const ownField = (typeName, name) => field(type(typeName), name, client.namespaces.indexOf(fileSystemUri));

    // Operands and elements of where clauses
    const fieldOperand = (...values) => new opcuaTypes.SimpleAttributeOperand(field(...values));
    const literal = (dataType, value, arrayType = VariantArrayType.Scalar) =>
        new opcua.LiteralOperand({ value: new Variant({ dataType, value, arrayType }) });
    const element = (index) => new opcua.ElementOperand({ index });
    const where = (filterOperator, ...filterOperands) => ({ filterOperator, filterOperands });
    const ofType = (id) => where(FilterOperator.OfType, literal(DataType.NodeId, id));

    function makeFilter(selectClauses, elements) {
        const known = elements.map((each) => ({ ...each, filterOperator: FilterOperator[each.filterOperator] ? each.filterOperator : 0 }));
        const filter = new opcua.EventFilter({ selectClauses, whereClause: { elements: known } });
        elements.forEach(({ filterOperator }, i) => (filter.whereClause.elements[i].filterOperator = filterOperator));
        return filter;
    }
    const parameters = (filter, clientHandle) => ({
        clientHandle, filter, samplingInterval: 0, queueSize: 100, discardOldest: true,
    });

    let handles = 0;
    /** Makes a monitored item of the shared file system; returns its result. */
    async function create(filter) {
        const { results } = await client.session.createMonitoredItems({
            subscriptionId: subscription.subscriptionId, timestampsToReturn: opcua.TimestampsToReturn.Neither,
            itemsToCreate: [{
                itemToMonitor: { nodeId: client.node(hostUri, "FileSystem"), attributeId: AttributeIds.EventNotifier },
                monitoringMode: opcua.MonitoringMode.Reporting,
                requestedParameters: parameters(filter, ++handles),
            }],
        });
        return results[0];
    }

    async function modify(monitoredItemId, filter) {
        const { results } = await client.session.modifyMonitoredItems({
            subscriptionId: subscription.subscriptionId, timestampsToReturn: opcua.TimestampsToReturn.Neither,
            itemsToModify: [{ monitoredItemId, requestedParameters: parameters(filter, ++handles) }],
        });
        return results[0];
    }

    const select = () => [field(baseEventType, "EventType")];

    const harmful = {
        "asks whether a field is null that the event lacks": () => [where(FilterOperator.IsNull, fieldOperand(baseEventType, "LocalTime"))],
        "compares a field of another event type": () => [where(FilterOperator.Equals,
            new opcuaTypes.SimpleAttributeOperand(ownField("ExistsResultEvent", "Exist")), literal(DataType.Boolean, true))],
        "asks for the type of a field": () => [where(FilterOperator.OfType, fieldOperand(baseEventType, "EventType"))],
        "compares a field that is there": () => [where(FilterOperator.GreaterThan,
            fieldOperand(baseEventType, "Severity"), literal(DataType.UInt16, 0))],
        "looks for nothing in a list of nothing": () => [where(FilterOperator.InList, literal(DataType.Null), literal(DataType.Null))],
        "looks for an empty array": () => [where(FilterOperator.InList,
            literal(DataType.Int32, [], VariantArrayType.Array), literal(DataType.Int32, [], VariantArrayType.Array))],
        "compares literals that need a conversion": () => [where(FilterOperator.Equals, literal(DataType.Byte, 1), literal(DataType.Int32, -1))],
        "combines bits": () => [where(FilterOperator.BitwiseAnd, literal(DataType.Byte, 1), literal(DataType.Byte, 1))],
        "refers to an operand of a node": () => [where(FilterOperator.IsNull, new opcua.AttributeOperand({
            nodeId: baseEventType, attributeId: AttributeIds.Value, browsePath: { elements: [] } }))],
        "combines a harmless element with a harmful one": () => [where(FilterOperator.And, element(1), element(2)),
            ofType(type("AckEvent")), where(FilterOperator.IsNull, fieldOperand(baseEventType, "LocalTime"))],
        "converts": () => [where(FilterOperator.Cast, literal(DataType.Byte, 1), literal(DataType.NodeId, opcua.coerceNodeId("i=1")))],
        "matches texts": () => [where(FilterOperator.Like, literal(DataType.String, "a"), literal(DataType.String, "a"))],
        "is of views": () => [where(FilterOperator.InView, literal(DataType.NodeId, opcua.coerceNodeId("i=85")))],
        "is of relations": () => [where(FilterOperator.RelatedTo)],
        "asks for the type of an array": () => [where(FilterOperator.OfType,
            literal(DataType.NodeId, [type("AckEvent")], VariantArrayType.Array))],
        "asks for a type that is no event type": () => [ofType(opcua.coerceNodeId("i=58"))],
        "has an operator without operands": () => [where(FilterOperator.OfType)],
        "has an And of one": () => [where(FilterOperator.And, element(1)), ofType(baseEventType)],
        "has an And of types": () => [where(FilterOperator.And, literal(DataType.NodeId, baseEventType), element(1)), ofType(baseEventType)],
        "has an element that refers to itself": () => [where(FilterOperator.Not, element(0))],
        "has an element that refers backwards": () => [where(FilterOperator.Not, element(1)), where(FilterOperator.Not, element(0))],
        "has an element that refers to nowhere": () => [where(FilterOperator.Not, element(0xffffffff))],
        "has 5000 operands": () => [where(FilterOperator.Or, ...Array(5_000).fill(element(1))), ofType(baseEventType)],
        "has 5000 elements": () => Array(5_000).fill(ofType(baseEventType)),
        "has an unknown operator": () => [where(99, literal(DataType.NodeId, baseEventType))],
        "has a negative operator": () => [where(0xffff_ffff, literal(DataType.NodeId, baseEventType))],
    };

    for (const [what, makeElements] of Object.entries(harmful)) {
        it(`that ${what} is refused with a new item and with a known one, and harms nobody`, async () => {
            const known = await create(makeFilter(select(), []));
            assert.equal(known.statusCode, StatusCodes.Good);
            const filter = makeFilter(select(), makeElements());
            for (const { statusCode, filterResult } of [await create(filter), await modify(known.monitoredItemId, filter)]) {
                assert.equal(statusCode.name, "BadEventFilterInvalid");
                if (makeElements().length <= 64) {
                    const { elementResults } = filterResult.whereClauseResult;
                    assert.equal(elementResults.length, makeElements().length);
                    assert.ok(elementResults.some((each) => !each.statusCode.isGood()), String(filterResult));
                }
            }
            await files.barrier();
            await waitFor("the event of the known item", () => events.length > 0);
            assert.equal(String(events[0][0]), String(type("ExistsResultEvent")));
        });
    }

    it("names the element that is refused, and the reason", async () => {
        const { filterResult } = await create(makeFilter(select(), [
            where(FilterOperator.And, element(1), element(2)), ofType(type("AckEvent")),
            where(FilterOperator.IsNull, fieldOperand(baseEventType, "LocalTime")),
        ]));
        assert.deepEqual(filterResult.whereClauseResult.elementResults.map(({ statusCode }) => statusCode.name),
            ["Good", "Good", "BadFilterOperatorUnsupported"]);
        const wrongOperand = await create(makeFilter(select(), [where(FilterOperator.Not, literal(DataType.Boolean, true))]));
        const [result] = wrongOperand.filterResult.whereClauseResult.elementResults;
        assert.equal(result.statusCode.name, "BadFilterOperandInvalid");
        assert.deepEqual(result.operandStatusCodes.map(({ name }) => name), ["BadFilterOperandInvalid"]);
    });

    const kinds = {
        "of a type": { elements: () => [ofType(type("AckEvent"))], heard: ["AckEvent"] },
        "of a type above": { elements: () => [ofType(baseEventType)], heard: ["AckEvent", "ExistsResultEvent"] },
        "not of a type": { elements: () => [where(FilterOperator.Not, element(1)), ofType(type("AckEvent"))], heard: ["ExistsResultEvent"] },
        "of one type or another": {
            elements: () => [where(FilterOperator.Or, element(1), element(2)), ofType(type("ListResultEvent")), ofType(type("AckEvent"))],
            heard: ["AckEvent"],
        },
        "of two types at once": {
            elements: () => [where(FilterOperator.And, element(1), element(2)), ofType(baseEventType), ofType(type("AckEvent"))],
            heard: ["AckEvent"],
        },
    };
    for (const [what, { elements, heard }] of Object.entries(kinds)) {
        it(`that wants events ${what} gets these and no others`, async () => {
            const item = await create(makeFilter(select(), elements()));
            assert.equal(item.statusCode, StatusCodes.Good);
            const last = await create(makeFilter([field(baseEventType, "Severity")], [])); // hears all
            assert.equal(last.statusCode, StatusCodes.Good);
            await files.call("Close", 1);
            await files.barrier();
            await waitFor("both events", () => events.filter(([value]) => typeof value === "number").length === 2);
            assert.deepEqual(events.filter(([value]) => typeof value !== "number").map(([value]) => String(value)),
                heard.map((name) => String(type(name))));
        });
    }

    it("may name fields by the type of the events that inherit them", async () => {
        const names = ["EventType", "SourceName", "Severity"];
        const item = await create(makeFilter([...names.map((name) => field(type("ExistsResultEvent"), name)),
            ownField("ExistsResultEvent", "Exist")], []));
        assert.equal(item.statusCode, StatusCodes.Good);
        const changed = await modify(item.monitoredItemId,
            makeFilter([...names.map((name) => field(type("ExistsResultEvent"), name)), ownField("ExistsResultEvent", "Exist")], []));
        assert.equal(changed.statusCode, StatusCodes.Good);
        await files.barrier();
        await waitFor("the event", () => events.length > 0);
        const [eventType, sourceName, severity, exist] = events[0];
        assert.deepEqual([String(eventType), sourceName, exist], [String(type("ExistsResultEvent")), "FileSystem", true]);
        assert.ok(severity >= 1);
    });

    it("with a field that no event has gets nothing for it, and the others", async () => {
        const selected = [field(baseEventType, "NoSuchField"), field(baseEventType, "SourceName"),
            field(type("AckEvent"), "NoSuchField", 0, { indexRange: "0:1" })];
        const item = await create(makeFilter(selected, []));
        assert.equal(item.statusCode, StatusCodes.Good);
        await files.barrier();
        await waitFor("the event", () => events.length > 0);
        assert.deepEqual(events[0].map((value) => value ?? null), [null, "FileSystem", null]);
    });

    it("without any field that there is is refused, with a result for each", async () => {
        const { statusCode, filterResult } = await create(
            makeFilter([field(baseEventType, "NoSuchField"), field(type("AckEvent"), "NorThis")], []));
        assert.equal(statusCode.name, "BadEventFilterInvalid");
        assert.deepEqual(filterResult.selectClauseResults.map(({ name }) => name), ["BadNodeIdUnknown", "BadNodeIdUnknown"]);
    });
});
