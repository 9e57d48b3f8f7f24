// Runs the Khronos glTF validator over the files named on the command line. Prints one line per
// file: "<file> errors <n> warnings <n>", then the messages of severity error or warning.
// Exit code 0 when no file has an error.
//
// The only external resources of an export are the scene's bitmaps, which the export names but
// does not carry (buffers are inside the .glb, or data URIs in a .gltf). The validator is handed
// a 1x1 PNG in place of each, so that it checks everything else without the bitmaps at hand.
import { readFile } from 'node:fs/promises';
import { createRequire } from 'node:module';

const require = createRequire(import.meta.url);
let validator;
try {
  validator = require('gltf-validator');
} catch {
  console.error('gltf-validator is not installed: scripts/install-deps.sh runs npm ci in tests/');
  process.exit(2);
}

const standInImage = Buffer.from(
  'iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mP8z8DwHwAFBQIAX8jx0gAAAABJRU5ErkJggg==', 'base64');

let failed = false;
for (const file of process.argv.slice(2)) {
  const bytes = new Uint8Array(await readFile(file));
  const report = await validator.validateBytes(bytes, {
    uri: file,
    maxIssues: 100,
    externalResourceFunction: () => Promise.resolve(new Uint8Array(standInImage)),
  });
  const issues = report.issues;
  console.log(`${file} errors ${issues.numErrors} warnings ${issues.numWarnings}`);
  for (const message of issues.messages) {
    if (message.severity <= 1)
      console.log(`  ${message.severity === 0 ? 'error' : 'warning'} ${message.code} ${message.pointer ?? ''}: ${message.message}`);
  }
  if (issues.numErrors > 0)
    failed = true;
}
process.exit(failed ? 1 : 0);
