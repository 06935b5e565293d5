// The start of a host: the files that it reads, its refusals, its privileges; and `--check`, which
// refuses the same.

import assert from "node:assert/strict";
import { spawn, spawnSync } from "node:child_process";
import { once } from "node:events";
import {
    chmodSync, chownSync, closeSync, copyFileSync, existsSync, mkdirSync, openSync, readdirSync, readFileSync, readlinkSync,
    statSync, symlinkSync, writeFileSync,
} from "node:fs";
import { createServer } from "node:net";
import { basename, join } from "node:path";
import { describe, it } from "node:test";
import { fileObjectsFlags, makeFolder, owner, programs, runHost, startHost, writeUsers } from "./harness.mjs";

const isRoot = process.getuid() === 0;
const onlyRoot = isRoot ? false : "NOT TESTED: only root can look into a host, and become others";
const nobody = 65534;

/** Returns flags of a host whose files lie in a folder of their own. */
function makePlace() {
    const folder = makeFolder("start");
    const place = {
        folder, root: join(folder, "root"), module: join(folder, basename(programs.module)), model: join(folder, basename(programs.model)),
        pki: join(folder, "pki"),
    };
    mkdirSync(place.root);
    copyFileSync(programs.module, place.module);
    copyFileSync(programs.model, place.model);
    place.flags = (more = {}, ...further) => {
        const { module, model, pki, root, listen } = { ...place, listen: "opc.tcp://127.0.0.1:0", ...more };
        return ["--root", root, "--module", module, "--model", model, "--pki", pki, "--listen", listen, "--trust-owner", owner, ...further];
    };
    return place;
}

/** Returns the messages of `--check` and of the start itself, which are the same. */
function refusal(flags, expected = 2) {
    const check = runHost([...flags, "--check"]);
    const start = runHost(flags);
    for (const { status, output, error } of [check, start]) {
        assert.equal(status, expected, error);
        assert.equal(output, "");
    }
    const last = (text) => text.trimEnd().split("\n").at(-1);
    assert.equal(last(check.error), last(start.error));
    return last(start.error);
}

describe("A host does not start", () => {
    it("with a file that clients could let lead elsewhere", () => {
        const place = makePlace();
        for (const name of ["module", "model", "pki"]) {
            const link = join(place.root, name);
            symlinkSync(place[name], link);
            assert.match(refusal(place.flags({ [name]: link })), /lies inside the root .* clients could change it/);
        }
        const link = join(place.root, "users");
        writeFileSync(join(place.folder, "users"), "", { mode: 0o600 });
        symlinkSync(join(place.folder, "users"), link);
        assert.match(refusal(place.flags({}, "--users", link)), /clients could change it/);
        writeFileSync(join(place.folder, "host.toml"), "");
        symlinkSync(join(place.folder, "host.toml"), join(place.root, "host.toml"));
        assert.match(refusal(place.flags({}, "--config", join(place.root, "host.toml"))), /clients could change it/);
        symlinkSync(join(place.root, "module"), join(place.folder, "to-link"));
        assert.match(refusal(place.flags({ module: join(place.folder, "to-link") })), /leads by way of .*clients could change it/);
    });

    it("with a trusted certificate that clients could let lead elsewhere", () => {
        const place = makePlace();
        assert.equal(runHost(place.flags({}, "--check")).status, 0);
        assert.ok(!existsSync(place.pki), "checking made keys");
        mkdirSync(join(place.pki, "trusted"), { recursive: true, mode: 0o700 });
        writeFileSync(join(place.root, "client.pem"), "");
        symlinkSync(join(place.root, "client.pem"), join(place.pki, "trusted", "client.pem"));
        assert.match(refusal(place.flags()), /client\.pem' leads by way of .* clients could change it/);
    });

    it("with files that others may change", () => {
        const place = makePlace();
        chmodSync(place.module, 0o666);
        assert.match(refusal(place.flags()), /can be changed by others: chmod go-w it/);
        chmodSync(place.module, 0o644);
        chmodSync(place.folder, 0o777);
        assert.match(refusal(place.flags()), /'[^']*', on the way to it, can be changed by others/);
    });

    it("as root with files of a user, unless that one is trusted", { skip: onlyRoot }, () => {
        const place = makePlace();
        chownSync(place.module, nobody, nobody);
        assert.match(refusal(place.flags()), /belongs to .*65534.*--trust-owner/);
        const flags = place.flags({}, "--check");
        flags[flags.indexOf("--trust-owner") + 1] = String(nobody);
        assert.equal(runHost(flags).status, 0);
    });

    it("with views of the kernel as roots, unless they are allowed", () => {
        const place = makePlace();
        for (const root of ["/proc", "/sys", "/dev"]) {
            assert.match(refusal(place.flags({ root }, "--no-sandbox")), /kernel file system/);
            assert.equal(runHost(place.flags({ root }, "--no-sandbox", "--allow-kernel-files", "--check")).status, 0);
        }
    });

    it("where another program listens, and says so last", async () => {
        const place = makePlace();
        const other = createServer().listen(0, "127.0.0.1");
        await once(other, "listening");
        const { port } = other.address();
        for (const flags of [[], ["--no-sandbox"], fileObjectsFlags]) {
            const text = refusal(place.flags({ listen: `opc.tcp://127.0.0.1:${port}` }, ...flags), 1);
            assert.equal(
                text,
                `talvensor-host: cannot listen on 127.0.0.1, port ${port}: Address already in use; choose another port with --listen`,
            );
        }
        other.close();
        assert.match(refusal(place.flags({ listen: "opc.tcp://192.0.2.1:0" }, "--trust-any-client"), 3), /no users/);
    });

    it("where its log could be anything else", () => {
        const place = makePlace();
        assert.match(refusal(place.flags({}, "--log-file", join(place.folder, "nowhere", "log"))), /there is no folder/);
        assert.match(refusal(place.flags({}, "--log-file", place.root), 2), /lies inside the root/);
        const pipe = join(place.folder, "pipe");
        assert.equal(spawnSync("mkfifo", [pipe]).status, 0);
        assert.match(refusal(place.flags({}, "--log-file", pipe), 1), /log file/);
    });

    it("with trusted certificates that are none, for others than this machine", () => {
        const place = makePlace();
        const users = join(place.folder, "users");
        writeUsers(users, { alice: "Tr0ub4dor" });
        mkdirSync(join(place.pki, "trusted"), { recursive: true, mode: 0o700 });
        writeFileSync(join(place.pki, "trusted", "client.der"), "no certificate");
        assert.match(refusal(place.flags({ listen: "opc.tcp://0.0.0.0:0" }, "--users", users), 1), /client\.der. is not a certificate/);
    });

    it("with a module that cannot be loaded", () => {
        const place = makePlace();
        writeFileSync(place.module, "no module");
        assert.match(refusal(place.flags(), 1), /FileSystem/);
    });
});

describe("A host that serves", () => {
    it("has no descriptors of those who started it, and always the standard ones", { skip: onlyRoot }, async () => {
        const host = await startHost();
        await host.stop();
        const secret = join(makeFolder("start"), "secret");
        const inherited = openSync(secret, "w");
        // A shell that closes the standard input, keeps the others, and leaves the descriptor 7 open.
        const command = 'exec "$0" "$@" <&- 7<&3';
        const child = spawn("sh", ["-c", command, programs.host, ...host.arguments], { stdio: ["ignore", "pipe", "inherit", inherited] });
        closeSync(inherited);
        try {
            await once(child.stdout, "data");
            const links = readdirSync(`/proc/${child.pid}/fd`).map((name) => [name, readlinkSync(`/proc/${child.pid}/fd/${name}`)]);
            const open = new Map(links);
            assert.equal(open.get("0"), "/dev/null");
            assert.ok(open.has("1") && open.has("2"));
            assert.ok(![...open.values()].includes(secret), [...open].join());
        } finally {
            child.kill("SIGTERM");
            await once(child, "exit");
        }
    });

    it("is filtered, gains nothing, and says what holds", async () => {
        const host = await startHost({ flags: ["--log-file", join(makeFolder("start"), "log")] });
        try {
            const status = readFileSync(`/proc/${host.pid}/status`, "utf8");
            assert.match(host.output, /sandbox {3}holds: mount namespace.*, Landlock .*, system call filter/);
            assert.match(status, /^NoNewPrivs:\s*1$/m);
            assert.match(status, /^Seccomp:\s*2$/m);
            assert.match(status, /^Seccomp_filters:\s*([2-9])$/m); // one more since it listens
            assert.equal(statSync(host.arguments.at(-1)).mode & 0o777, 0o640 & ~process.umask());
            assert.match(readFileSync(host.arguments.at(-1), "utf8"), /Confined by: mount namespace.*system call filter/);
            const files = await (await host.connect()).createFiles();
            await files.upload(host.path("file"), "text");
        } finally {
            await host.stop();
        }
    });

    for (const flags of [[], ["--no-sandbox"]]) {
        it(`serves as an ordinary user who cannot look into it, ${flags[0] ?? "with a sandbox"}`, { skip: onlyRoot }, async () => {
            const host = await startHost({ user: nobody, flags });
            try {
                const files = await (await host.connect()).createFiles();
                await files.upload(host.path("file"), "text");
                assert.equal(readFileSync(host.path("file"), "utf8"), "text");
                // A process that can be dumped has files in /proc that belong to its user.
                assert.equal(statSync(`/proc/${host.pid}/mem`).uid, 0);
                const look = spawnSync("ls", [`/proc/${host.pid}/fd`], { uid: nobody, gid: nobody, encoding: "utf8" });
                assert.match(look.stderr, /Permission denied/);
            } finally {
                await host.stop();
            }
        });
    }
});
