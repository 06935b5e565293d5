// node client.mjs URL LOCAL FOLDER up|down BLOCK [NAMESPACE NODE]
// Moves LOCAL to or from the served file, or another node of a server, with the package's own
// operations, and prints the seconds that took, and the seconds of processor time of this client,
// both without connecting. BLOCK in bytes, 0: what the package chooses. FOLDER is for its key.

import { writeFileSync } from "node:fs";
import { makeCertificateManager, fileNode } from "./common.mjs";

const { OPCUAClient, resolveNodeId } = (await import("node-opcua-client")).default;
const { ClientFile, readFile, writeOPCUAFile } = (await import("node-opcua-file-transfer")).default;

const [url, local, folder, direction, block, namespace, node] = process.argv.slice(2);
const client = OPCUAClient.create({
    clientCertificateManager: await makeCertificateManager(folder, "client"),
    endpointMustExist: false,
    connectionStrategy: { maxRetry: 0 },
});
await client.connect(url);
const session = await client.createSession();
const served = node ? `ns=${(await session.readNamespaceArray()).indexOf(namespace)};s=${node}` : fileNode;
const file = new ClientFile(session, resolveNodeId(served));
const chunkSize = Number(block) || undefined;
const before = process.cpuUsage();
const start = process.hrtime.bigint();
if (direction === "up") {
    await writeOPCUAFile(file, local, { chunkSize });
} else {
    writeFileSync(local, await readFile(file, chunkSize && { chunkSize }));
}
const seconds = Number(process.hrtime.bigint() - start) / 1e9;
const { user, system } = process.cpuUsage(before);
console.log(JSON.stringify({ seconds, processor: (user + system) / 1e6 }));
await session.close();
await client.disconnect();
process.exit(0);
