// node objects.mjs URL FOLDER ROOT TASK NAME [COUNT]
// Does something with the directory NAME in the folder ROOT of a talvensor-host, and prints the seconds
// that took, without those to connect: browse (COUNT entries at most, in pages of 1000), List of the
// file objects (list), List of the first module with a path (list-first). FOLDER is for its key.

import { makeCertificateManager } from "./common.mjs";

const { OPCUAClient, AttributeIds, DataType, EventFilter, MonitoringMode, TimestampsToReturn, Variant, VariantArrayType } = (
    await import("node-opcua-client")
).default;

const [url, folder, root, task, name, count] = process.argv.slice(2);
const client = OPCUAClient.create({
    clientCertificateManager: await makeCertificateManager(folder, "client"),
    endpointMustExist: false,
    connectionStrategy: { maxRetry: 0 },
    transportSettings: { maxMessageSize: 64 * 1024 * 1024, maxChunkCount: 2_000 },
});
await client.connect(url);
const session = await client.createSession();
const namespaces = await session.readNamespaceArray();
const index = (uri) => namespaces.indexOf(`urn:Talvensor:${uri}`);
const directory = `ns=${index("FileObjects")};s=d/${root}/${name}`;

async function browse(most) {
    session.requestedMaxReferencesPerNode = Math.min(most, 1_000);
    let page;
    do { // a busy machine may be late with the first listing: the client tries again, and its time counts
        page = await session.browse({
            nodeId: directory, referenceTypeId: "Organizes", browseDirection: 0, includeSubtypes: true, resultMask: 63,
        });
    } while (page.statusCode.name === "BadResourceUnavailable");
    let found = page.references.length;
    while (page.continuationPoint?.length && found < most) {
        page = await session.browseNext(page.continuationPoint, false);
        found += page.references.length;
    }
    return found;
}

async function list() {
    const start = new Variant({ dataType: DataType.UInt64, arrayType: VariantArrayType.Scalar, value: [0, 0] });
    const most = new Variant({ dataType: DataType.UInt32, value: 0 });
    const methodId = `ns=${index("FileObjects")};i=1020`;
    const { outputArguments } = await session.call({ objectId: directory, methodId, inputArguments: [start, most] });
    return outputArguments[0].value.length;
}

/** Returns an operation that lists once. */
async function prepareFirst() {
    const [host, files] = [index("Host"), index("FileSystem")];
    const created = await session.call({ objectId: `ns=${host};i=1`, methodId: `ns=${host};i=2`, inputArguments: [] });
    const objectId = created.outputArguments[0].value;
    const subscription = await session.createSubscription2({
        requestedPublishingInterval: 10, requestedLifetimeCount: 12_000, requestedMaxKeepAliveCount: 1_000,
        maxNotificationsPerPublish: 0, publishingEnabled: true,
    });
    const content = { typeDefinitionId: `ns=${files};i=68`, browsePath: [{ namespaceIndex: files, name: "Content" }], attributeId: AttributeIds.Value };
    const item = await subscription.monitor(
        { nodeId: objectId, attributeId: AttributeIds.EventNotifier },
        { samplingInterval: 0, queueSize: 1_000, discardOldest: true, filter: new EventFilter({ selectClauses: [content] }) },
        TimestampsToReturn.Neither,
        MonitoringMode.Reporting
    );
    return () =>
        new Promise((resolve, reject) => {
            item.on("changed", ([value]) => value.value && resolve(value.value.length));
            const path = new Variant({ dataType: DataType.String, value: name });
            const isRecursive = new Variant({ dataType: DataType.Boolean, value: false });
            session.call({ objectId, methodId: `ns=${files};i=1090`, inputArguments: [path, isRecursive] }).catch(reject);
        });
}

const work = { browse: () => browse(Number(count)), list, "list-first": task === "list-first" && (await prepareFirst()) }[task];
const start = process.hrtime.bigint();
const entries = await work();
const seconds = Number(process.hrtime.bigint() - start) / 1e9;
console.log(JSON.stringify({ seconds, entries }));
await session.close();
await client.disconnect();
process.exit(0);
