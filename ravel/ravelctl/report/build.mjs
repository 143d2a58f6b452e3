// Makes the page without its data: one HTML file from the sources beside this script.
//
// usage: node build.mjs OUTPUT    in the folder that holds node_modules

import { readFileSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

const sources = join(dirname(fileURLToPath(import.meta.url)), 'src');
const modules = join(process.cwd(), 'node_modules');
const esbuild = createRequire(join(process.cwd(), 'package.json'))('esbuild');

const options = {
  bundle: true,
  minify: true,
  write: false,
  charset: 'utf8',
  legalComments: 'none',
  logLevel: 'warning',
};
const bundle = (file, more) =>
  esbuild.buildSync({ ...options, ...more, entryPoints: [join(sources, file)] }).outputFiles[0].text.trim();

const escape = (text) => text.replace(/[&<>]/g, (letter) => ({ '&': '&amp;', '<': '&lt;', '>': '&gt;' })[letter]);
const licences = ['echarts/NOTICE', 'echarts/LICENSE', 'zrender/LICENSE', 'tslib/LICENSE.txt']
  .map((file) => `== ${file}\n\n${readFileSync(join(modules, file), 'utf8').trim()}\n`)
  .join('\n');

const parts = {
  '@STYLE@': bundle('style.css', {}),
  '@LICENCES@': escape(licences),
  '@SCRIPT@': bundle('main.js', { format: 'iife', target: 'es2020', nodePaths: [modules] }),
};
let page = readFileSync(join(sources, 'template.html'), 'utf8');
for (const [name, text] of Object.entries(parts)) {
  if (page.split(name).length !== 2) {
    throw new Error(`template.html: expected ${name} once`);
  }
  page = page.replace(name, () => text);
}
if (page.split('@REPORT_DATA@').length !== 2 || page.includes('\0')) {
  throw new Error('the page must name its data once and hold no zero byte');
}
writeFileSync(process.argv[2], page);
