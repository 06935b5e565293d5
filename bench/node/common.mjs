// Shared by both ends of the reference.

import { webcrypto } from "node:crypto";
import { join } from "node:path";

// node 18 has it, but not yet as a global, where node-opcua looks for it.
globalThis.crypto ??= webcrypto;

const { OPCUACertificateManager } = (await import("node-opcua-certificate-manager")).default;

/** Keys and certificates in a folder of ours instead of the user's. */
export async function makeCertificateManager(folder, name) {
    const manager = new OPCUACertificateManager({
        automaticallyAcceptUnknownCertificate: true,
        rootFolder: join(folder, name),
    });
    await manager.initialize();
    return manager;
}

/** The one file that is served. */
export const fileNode = "ns=1;s=File";
