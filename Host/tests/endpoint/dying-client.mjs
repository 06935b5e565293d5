// A client that a test kills: it uploads a file block by block, without end, and says so once the
// file is open. Usage: node dying-client.mjs URL PATH

import { Client } from "./harness.mjs";

const [url, path] = process.argv.slice(2);
const client = new Client({ url, root: "/" }, {});
await client.open();
const files = await client.createFiles();
const block = Buffer.alloc(1024 * 1024, "x");
const handle = await files.call("OpenWrite", path, block);
await files.barrier();
console.log("open");
for (;;) {
    await files.call("SetPosition", handle, [0, 0]); // so that the disk does not fill
    await files.call("Write", handle, block);
    await files.barrier();
}
