// A client that a test kills: it reads from a pipe that has nothing, and sends more calls behind
// that than the host takes, but no more than the system takes from it: what stays in its own
// buffers would keep its end from the host. Usage: node waiting-client.mjs URL PIPE

import { Client } from "./harness.mjs";

const [url, path] = process.argv.slice(2);
const client = new Client({ url, root: "/" }, {});
await client.open();
const files = await client.createFiles();
const handle = await files.call("Open", path, 1);
await files.barrier();
files.call("Read", handle, 4).catch(() => {}); // is not answered
for (let i = 0; i < 1_200; ++i) {
    files.tryCall("GetPosition", handle).catch(() => {});
}
console.log("waiting");
