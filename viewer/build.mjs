// SPDX-License-Identifier: Apache-2.0
// Bundles the viewer into one script and one style sheet, where the program takes them from (or into the directory
// given). The same sources give the same bytes.
import { build } from 'esbuild';
import { fileURLToPath } from 'node:url';
import path from 'node:path';

const here = path.dirname(fileURLToPath(import.meta.url));
const outdir = path.resolve(process.argv[2] ?? path.join(here, '../src/report/viewer'));

await build({
  absWorkingDir: here,
  entryPoints: { report_viewer: 'src/main.js' },
  outdir,
  bundle: true,
  minify: true,
  format: 'iife',
  target: ['chrome103', 'firefox113', 'safari16.4'],
  charset: 'ascii',
  legalComments: 'none',
  banner: {
    js: '/* Contains OpenLayers, BSD-2-Clause, (c) OpenLayers Contributors; rbush, earcut and others, MIT/ISC. */',
  },
  logLevel: 'warning',
});
