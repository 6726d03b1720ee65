#!/usr/bin/env node
// Validates glTF files with the Khronos validator; prints one JSON line per file with the
// error and warning counts and the messages, and exits 1 when any file has an error.
const fs = require('fs');
const path = require('path');
const validator = require('gltf-validator');

async function main() {
  let failed = false;
  for (const file of process.argv.slice(2)) {
    const report = await validator.validateBytes(new Uint8Array(fs.readFileSync(file)), {
      uri: path.basename(file),
      maxIssues: 50,
    });
    const issues = report.issues;
    const messages = issues.messages.map((m) => `${m.code} ${m.pointer || ''}: ${m.message}`);
    console.log(JSON.stringify({
      file,
      errors: issues.numErrors,
      warnings: issues.numWarnings,
      infos: issues.numInfos,
      messages,
    }));
    failed = failed || issues.numErrors > 0;
  }
  process.exit(failed ? 1 : 0);
}

main().catch((e) => {
  console.error(e.message);
  process.exit(2);
});
