// pcfg lsp timed as an editor sees it: a separate process on stdin/stdout, driven through the
// LSP client libraries editors' clients are built on. Opens FILE (closing and opening it again
// for each timed open), edits one character of a reference halfway down and back, and asks for
// hover, definition, references and completion there; prints the median and 95th percentile of
// each, from the message sent to the answer (or to the diagnostics of that version), and the
// server's resident memory with the document open.
//
//   node benchmarks/lsp_process_benchmark.mjs PCFG FILE [--opens N] [--edits N] [--requests N]
//
// A configuration of 10,000 peripherals: build/benchmarks/compare/scale-config examples/headset.txtpb
// 455 /tmp/h455 writes /tmp/h455.txtpb (22 peripherals a copy).
import { spawn } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { basename, resolve } from 'node:path';
import { pathToFileURL } from 'node:url';

import lsp from 'vscode-languageserver-protocol/node';

const args = process.argv.slice(2);
const option = (name, fallback) => {
  const at = args.indexOf(name);
  if (at < 0) return fallback;
  const value = Number(args[at + 1]);
  if (!Number.isInteger(value) || value < 1) fail(`${name} takes a whole number above 0`);
  args.splice(at, 2);
  return value;
};
function fail(message) {
  console.error(`lsp_process_benchmark: ${message}`);
  process.exit(2);
}
const opens = option('--opens', 5), edits = option('--edits', 20), requests = option('--requests', 50);
const [pcfg, file] = args;
if (!pcfg || !file || args.length !== 2)
  fail('usage: node lsp_process_benchmark.mjs PCFG FILE [--opens N] [--edits N] [--requests N]');
const text = readFileSync(file, 'utf8');
const uri = pathToFileURL(resolve(file)).href;
const LIMIT_MS = 120000;  // for one answer: a stuck server ends the run instead of hanging it

// Where a reference stands halfway down: inside the id of the first peripheral_id after the middle.
const anchor = 'peripheral_id: "';
let at = text.indexOf(anchor, Math.floor(text.length / 2));
if (at < 0) at = text.indexOf(anchor);
if (at < 0) fail(`${file} has no ${anchor}`);
const lineStart = text.lastIndexOf('\n', at) + 1;
const position = { line: text.slice(0, lineStart).split('\n').length - 1, character: at - lineStart + anchor.length + 1 };

const server = spawn(pcfg, ['lsp'], { stdio: ['pipe', 'pipe', 'inherit'] });
server.on('exit', (code, signal) => {
  if (!finished) fail(`pcfg lsp ended early (status ${code}, signal ${signal})`);
});
let finished = false;
const connection = lsp.createProtocolConnection(
  new lsp.StreamMessageReader(server.stdout), new lsp.StreamMessageWriter(server.stdin));
const waiting = new Map();  // "uri version" -> resolve
connection.onNotification(lsp.PublishDiagnosticsNotification.type, (params) => {
  const key = `${params.uri} ${params.version}`;
  waiting.get(key)?.();
  waiting.delete(key);
});
connection.listen();

function within(promise, what) {
  let timer;
  const limit = new Promise((_, reject) => {
    timer = setTimeout(() => reject(new Error(`no answer to ${what} within ${LIMIT_MS} ms`)), LIMIT_MS);
  });
  return Promise.race([promise, limit]).finally(() => clearTimeout(timer));
}
const diagnosticsOf = (version) =>
  within(new Promise((done) => waiting.set(`${uri} ${version}`, done)), `the diagnostics of version ${version}`);
const now = () => Number(process.hrtime.bigint()) / 1e6;
// The server's resident memory now (VmRSS), or at its highest so far (VmHWM).
function residentMiB(field = 'VmRSS') {
  const status = readFileSync(`/proc/${server.pid}/status`, 'utf8');
  return Number(new RegExp(`${field}:\\s+(\\d+)`).exec(status)[1]) / 1024;
}
function percentiles(ms) {
  const sorted = [...ms].sort((a, b) => a - b);
  const pick = (p) => sorted[Math.min(sorted.length - 1, Math.floor((sorted.length * p) / 100))];
  return `${pick(50).toFixed(2)} / ${pick(95).toFixed(2)} ms`;
}

try {
  await within(connection.sendRequest(lsp.InitializeRequest.type, { processId: process.pid, rootUri: null, capabilities: {} }),
    'initialize');
  connection.sendNotification(lsp.InitializedNotification.type, {});
  const idle = residentMiB();

  const rows = [];
  let version = 0;
  const asked = { textDocument: { uri }, position, context: { includeDeclaration: true } };
  const openMs = [], readyMs = [];
  for (let i = 0; i < opens; ++i) {
    if (i > 0) connection.sendNotification(lsp.DidCloseTextDocumentNotification.type, { textDocument: { uri } });
    const published = diagnosticsOf(++version);
    const start = now();
    connection.sendNotification(lsp.DidOpenTextDocumentNotification.type,
      { textDocument: { uri, languageId: 'textproto', version, text } });
    await published;
    openMs.push(now() - start);
    // A clean document's diagnostics come before its syntax tree is built: the first request
    // waits for it.
    await within(connection.sendRequest(lsp.HoverRequest.type, asked), 'hover');
    readyMs.push(now() - start);
  }
  rows.push(['open → first diagnostics', percentiles(openMs)]);
  rows.push(['open → first request answered', percentiles(readyMs)]);

  const editMs = [];
  for (let i = 0; i < edits; ++i) {
    // One character typed after the id's first, then taken back.
    const typing = i % 2 === 0;
    const end = { line: position.line, character: position.character + (typing ? 0 : 1) };
    const published = diagnosticsOf(++version);
    const start = now();
    connection.sendNotification(lsp.DidChangeTextDocumentNotification.type, {
      textDocument: { uri, version },
      contentChanges: [{ range: { start: position, end }, text: typing ? 'x' : '' }],
    });
    await published;
    editMs.push(now() - start);
  }
  rows.push(['edit → fresh diagnostics', percentiles(editMs)]);

  for (const [name, type] of [['hover', lsp.HoverRequest.type], ['definition', lsp.DefinitionRequest.type],
    ['references', lsp.ReferencesRequest.type], ['completion', lsp.CompletionRequest.type]]) {
    const ms = [];
    for (let i = 0; i < requests; ++i) {
      const start = now();
      await within(connection.sendRequest(type, asked), name);
      ms.push(now() - start);
    }
    rows.push([name, percentiles(ms)]);
  }
  rows.push(['resident memory the open document adds', `${(residentMiB() - idle).toFixed(1)} MiB`]);
  rows.push(['the server\'s resident memory: now / at its highest',
    `${residentMiB().toFixed(1)} / ${residentMiB('VmHWM').toFixed(1)} MiB`]);

  console.log(`pcfg lsp as a process, ${basename(file)} (${(text.length / 1e6).toFixed(1)} MB): p50 / p95\n`);
  console.log('| | |\n|---|---:|');
  for (const [what, figure] of rows) console.log(`| ${what} | ${figure} |`);

  await within(connection.sendRequest(lsp.ShutdownRequest.type), 'shutdown');
  finished = true;
  const exited = new Promise((done) => server.on('exit', done));
  connection.sendNotification(lsp.ExitNotification.type);
  await within(exited, 'exit');
  connection.dispose();
} catch (error) {
  finished = true;
  server.kill('SIGKILL');
  fail(error.message);
}
