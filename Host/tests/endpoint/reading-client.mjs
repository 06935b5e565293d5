// A client in a process of its own, which a test can stop: reads a file again and again with many
// reads under way, and hears the events of the shared file system. Says "reading" when it does, and
// at its end "read COUNT bytes, heard COUNT listings".
//
//     node reading-client.mjs URL ROOT FILE READS LISTINGS

import { Client, waitFor, within } from "./harness.mjs";

const [url, root, file, reads, listings] = process.argv.slice(2);
const readsUnderWay = 64;
const blockSize = 61_440;

const client = new Client({ url, root }, {});
await client.open();
let heard = 0;
await client.subscribe(client.node("urn:Talvensor:Host", "FileSystem"), (event) => {
    heard += event.type === "ListResultEvent" ? 1 : 0;
});
const files = await client.createFiles();
const handle = await files.call("Open", file, 1);
await files.barrier();

let left = Number(reads);
let bytes = 0;
const request = (name, ...inputs) => ({
    objectId: files.nodeId, methodId: files.method(name), inputArguments: files.variants(name, inputs),
});
async function read() {
    while (left > 0) {
        --left;
        // In one request, so that no other read comes in between.
        const results = await client.session.call([request("SetPosition", handle, [0, 0]), request("Read", handle, blockSize)]);
        bytes += results[1].outputArguments[0].value.length;
        if (bytes === blockSize * readsUnderWay) {
            console.log("reading");
        }
    }
}
await within("the reads", Promise.all(Array.from({ length: readsUnderWay }, read)));
await waitFor("the listings", () => heard === Number(listings));
console.log(`read ${bytes} bytes, heard ${heard} listings`);
await client.close();
