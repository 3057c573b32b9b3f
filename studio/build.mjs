// Makes one HTML file of the page, its worker and the WebAssembly.
//   node build.mjs WASM HTML
import { createHash } from "node:crypto";
import { readFile, writeFile } from "node:fs/promises";
import { dirname, resolve } from "node:path";
import { fileURLToPath } from "node:url";
import { promisify } from "node:util";
import { gzip } from "node:zlib";
import * as esbuild from "esbuild";

const [wasm, html] = process.argv.slice(2);
const page = resolve(dirname(fileURLToPath(import.meta.url)), "page");

// A file whose path ends with ?text is imported as its text.
const asText = {
  name: "text",
  setup(build) {
    build.onResolve({ filter: /\?text$/ }, ({ path, resolveDir }) => ({
      path: resolve(resolveDir, path.replace(/\?text$/, "")),
      namespace: "text",
    }));
    build.onLoad({ filter: /.*/, namespace: "text" }, async ({ path }) => ({
      contents: await readFile(path, "utf8"),
      loader: "text",
    }));
  },
};

async function bundled(file) {
  const { outputFiles } = await esbuild.build({
    entryPoints: [resolve(page, file)],
    bundle: true,
    minify: true,
    write: false,
    format: "iife",
    target: "es2022",
    charset: "utf8",
    legalComments: "none",
    plugins: [asText],
  });
  // The end of a script element is the only text that may not stand inside one.
  return outputFiles[0].text.trim().replaceAll("</script", "<\\/script");
}

const packed = await promisify(gzip)(await readFile(wasm), { level: 9 });
const script = await bundled("main.ts");
const uplot = await readFile(resolve(page, "../node_modules/uplot/dist/uPlot.min.css"), "utf8");
const style = (
  await esbuild.transform(uplot + (await readFile(resolve(page, "style.css"), "utf8")), {
    loader: "css",
    minify: true,
  })
).code;
const hash = createHash("sha256").update(script).digest("base64");
const parts = {
  POLICY: [
    "default-src 'none'",
    `script-src 'sha256-${hash}' 'wasm-unsafe-eval'`,
    "worker-src blob:",
    "style-src 'unsafe-inline'", // the editor and the chart make styles of their own
    "img-src data:",
    "base-uri 'none'",
    "form-action 'none'",
  ].join("; "),
  STYLE: style,
  MODULE: packed.toString("base64"),
  WORKER: await bundled("worker.ts"),
  SCRIPT: script,
};
const text = (await readFile(resolve(page, "index.html"), "utf8")).replace(/@([A-Z]+)@/g, (_, name) => parts[name]);
await writeFile(html, text);
console.log(`${html}: ${Buffer.byteLength(text)} bytes`);
