// node server.mjs PORT FILE FOLDER
// Serves FILE as an object of the standard's FileType, until it is ended. FOLDER is for its key.

import { makeCertificateManager, fileNode } from "./common.mjs";

const { OPCUAServer } = (await import("node-opcua-server")).default;
const { installFileType } = (await import("node-opcua-file-transfer")).default;

const [port, filename, folder] = process.argv.slice(2);
const server = new OPCUAServer({
    hostname: "127.0.0.1",
    port: Number(port),
    serverCertificateManager: await makeCertificateManager(folder, "server"),
});
await server.initialize();
const { addressSpace } = server.engine;
const file = addressSpace.findObjectType("FileType").instantiate({
    browseName: "File",
    nodeId: fileNode,
    organizedBy: addressSpace.rootFolder.objects,
});
installFileType(file, { filename, maxSize: 2 ** 30 });
await server.start();
console.log("serving");
