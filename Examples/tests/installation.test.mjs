// Installs this build to a new folder, builds the examples against it as anybody would, and uses what is
// installed there.

import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { mkdirSync, readdirSync, readFileSync, renameSync, rmSync, writeFileSync } from "node:fs";
import { dirname, join, resolve } from "node:path";
import { after, before, describe, it } from "node:test";
import { fileURLToPath } from "node:url";
import { makeFolder, startHost } from "../../Host/tests/endpoint/harness.mjs";

const repository = resolve(dirname(fileURLToPath(import.meta.url)), "../..");
const build = process.env.TALVENSOR_BUILD ?? join(repository, "build/dev");
const cmake = process.env.TALVENSOR_CMAKE ?? "cmake";
const folder = makeFolder("installation");
const prefix = join(folder, "prefix");

function run(program, ...parameters) {
    const result = spawnSync(program, parameters, { encoding: "utf8", env: { ...process.env, HOME: folder } });
    const output = `${result.stdout}${result.stderr}`;
    return { status: result.status, output: result.error ? String(result.error) : output };
}

function succeed(program, ...parameters) {
    const { status, output } = run(program, ...parameters);
    assert.equal(status, 0, `${program} ${parameters.join(" ")}: ${output}`);
    return output;
}

const configure = (source, name, ...flags) =>
    run(cmake, "-G", "Ninja", "-S", source, "-B", join(folder, name), `-DCMAKE_PREFIX_PATH=${prefix}`, ...flags);

/** Builds a project against the installation; returns the folder of its build. */
function buildProject(source, name) {
    const { status, output } = configure(source, name);
    assert.equal(status, 0, output);
    succeed(cmake, "--build", join(folder, name));
    return join(folder, name);
}

/** Makes a project that looks for Talvensor; returns its folder. */
function makeProject(name, request, more = "") {
    const source = join(folder, name);
    mkdirSync(source, { recursive: true });
    writeFileSync(join(source, "CMakeLists.txt"),
        `cmake_minimum_required(VERSION 3.25)\nproject(Project CXX)\nfind_package(Talvensor ${request})\n${more}`);
    return source;
}

/** Configures a project that looks for Talvensor; returns the output, which must be an error. */
function failToFind(request) {
    const { status, output } = configure(makeProject("finding", request), "finding/build");
    assert.notEqual(status, 0, output);
    return output.replace(/\s+/g, " ");
}

function listFiles(directory) {
    return readdirSync(directory, { withFileTypes: true }).flatMap((entry) => {
        const path = join(directory, entry.name);
        return entry.isDirectory() ? listFiles(path) : [path];
    });
}

describe("An installation", () => {
    before(() => {
        for (const component of ["host", "client", "dev"]) {
            succeed(cmake, "--install", build, "--prefix", prefix, "--component", component);
        }
    });

    it("does not name the folder of its build", () => {
        const naming = listFiles(prefix).filter((file) => readFileSync(file).includes(build));
        assert.deepEqual(naming, []);
    });

    it("has public headers alone", () => {
        assert.deepEqual(readdirSync(join(prefix, "include/talvensor")).sort(), ["Client", "Core"]);
    });

    it("tells which components there are", () => {
        assert.match(failToFind("REQUIRED COMPONENTS Core Server"),
            /Talvensor has no component 'Server'; its components are Core and Client/);
    });

    it("tells of another version", () => {
        assert.match(failToFind("99 REQUIRED"), /compatible with requested version "99"/);
    });

    it("lets a program run a host inside itself", () => {
        const source = makeProject("embedding", "REQUIRED COMPONENTS Core",
            `add_executable(program ${join(repository, "Demo/Example/main.cpp")})\n` +
            "target_link_libraries(program Talvensor::Core)\n");
        const program = join(buildProject(source, "embedding/build"), "program");
        const [module, model] = ["/libTalvensor.FileSystem.so", "/Talvensor.FileSystem.NodeSet2.xml"]
            .map((name) => listFiles(prefix).find((file) => file.endsWith(name)));
        assert.equal(succeed(program, module, model, folder), `${folder} exists\n`);
    });

    it("serves a module that was built against it, and moves files", async () => {
        succeed(cmake, "--install", buildProject(join(repository, "Examples/Greeter"), "greeter"));
        const example = join(buildProject(join(repository, "Client/example"), "client"), "talvensor-client-example");
        const host = await startHost({ program: join(prefix, "bin/talvensor-host") });
        after(() => host.stop());
        assert.equal(await (await host.connect()).greet("Ada"), "Hello, Ada!");

        const file = join(folder, "file");
        writeFileSync(file, "content");
        succeed(join(prefix, "bin/talvensor-fs"), "-e", host.url, "--accept-new", "put", file, ".");
        assert.equal(readFileSync(host.path("file"), "utf8"), "content");
        succeed(example, host.url, join(folder, "state"), file, "there");
        assert.equal(readFileSync(`${file}.back`, "utf8"), "content");
    });

    it("can be moved, and says where it looks for modules", () => {
        const moved = join(folder, "moved");
        renameSync(prefix, moved);
        const root = join(folder, "root");
        mkdirSync(root);
        const host = join(moved, "bin/talvensor-host");
        const flags = ["--check", "--root", root, "--pki", join(folder, "pki"), "--listen", "opc.tcp://127.0.0.1:0"];
        assert.match(succeed(host, ...flags), /The configuration is valid/);

        const modules = dirname(listFiles(moved).find((file) => file.endsWith("/libTalvensor.FileSystem.so")));
        rmSync(modules, { recursive: true });
        const { status, output } = run(host, ...flags);
        assert.equal(status, 2, output);
        assert.ok(output.includes(`--module: no module is given, and none is in '${modules}'`), output);
    });
});
