// SPDX-License-Identifier: Apache-2.0
// Writes the lock file with a package per line: as npm leaves it, it is longer than any file here may be.
import { readFileSync, writeFileSync } from 'node:fs';

const file = new URL('package-lock.json', import.meta.url);
const { packages, ...head } = JSON.parse(readFileSync(file, 'utf8'));
const lines = Object.entries(packages).map(
  ([name, entry]) => `    ${JSON.stringify(name)}: ${JSON.stringify(entry)}`,
);
const fields = Object.entries(head).map(
  ([key, value]) => `  ${JSON.stringify(key)}: ${JSON.stringify(value)},\n`,
);
writeFileSync(file, `{\n${fields.join('')}  "packages": {\n${lines.join(',\n')}\n  }\n}\n`);
