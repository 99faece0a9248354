// pcfg lsp as an editor sees it: a separate process on stdin/stdout, driven through the JSON-RPC
// and LSP client libraries that editors' clients are built on, on the shipped example.
//   node lsp_client_test.mjs PCFG EXAMPLE
// Every request has a time limit of its own, so that a server that never answers fails the test
// rather than hanging it.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { after, before, describe, it } from 'node:test';
import { pathToFileURL } from 'node:url';
import { isDeepStrictEqual } from 'node:util';

import lsp from 'vscode-languageserver-protocol/node';

const [pcfg, examplePath] = process.argv.slice(2);
if (!pcfg || !examplePath) {
  console.error('usage: node lsp_client_test.mjs PCFG EXAMPLE');
  process.exit(2);
}
const LIMIT_MS = 10000;  // for one answer; each is expected in well under a second
const text = readFileSync(examplePath, 'utf8');
const uri = pathToFileURL(examplePath).href;

// The position of the first NEEDLE in SOURCE (after the first AFTER, when given), moved SHIFT
// characters on; in UTF-16 code units, as JavaScript strings count.
function positionOf(source, needle, { shift = 0, after: anchor } = {}) {
  const from = anchor === undefined ? 0 : source.indexOf(anchor);
  assert.ok(from >= 0, `no ${JSON.stringify(anchor)} in the text`);
  const at = source.indexOf(needle, from);
  assert.ok(at >= 0, `no ${JSON.stringify(needle)} in the text`);
  const lineStart = source.lastIndexOf('\n', at) + 1;
  const line = source.slice(0, lineStart).split('\n').length - 1;
  return { line, character: at - lineStart + shift };
}

function rangeOf(source, needle, options) {
  const start = positionOf(source, needle, options);
  return { start, end: { line: start.line, character: start.character + needle.length } };
}

// The text a range covers.
function textIn(source, range) {
  const lines = source.split('\n');
  assert.equal(range.start.line, range.end.line, 'one-line range expected');
  return lines[range.start.line].slice(range.start.character, range.end.character);
}

// After one time-out the server is taken to be stuck: what follows fails at once rather than
// waiting again.
let stuck = null;
function within(promise, what) {
  if (stuck) return Promise.reject(new Error(`not asked for ${what}: ${stuck}`));
  let timer;
  const limit = new Promise((_, reject) => {
    timer = setTimeout(() => {
      stuck = `no answer to ${what} within ${LIMIT_MS} ms`;
      reject(new Error(stuck));
    }, LIMIT_MS);
  });
  return Promise.race([promise, limit]).finally(() => clearTimeout(timer));
}

let server, connection, serverExit;
const published = [];  // publishDiagnostics params, in order
let onPublish = () => {};

function request(type, params, token) {
  const method = typeof type === 'string' ? type : type.method;
  return within(connection.sendRequest(type, params, token), method);
}

// The diagnostics published for the document's VERSION (waits for them).
function diagnosticsOf(version) {
  const find = () => published.find((p) => p.uri === uri && p.version === version);
  return within(
    new Promise((resolve) => {
      const check = () => {
        const found = find();
        if (found) resolve(found.diagnostics);
        return found;
      };
      if (!check()) onPublish = check;
    }),
    `the diagnostics of version ${version}`);
}

function textDocument() {
  return { textDocument: { uri } };
}

before(async () => {
  server = spawn(pcfg, ['lsp'], { stdio: ['pipe', 'pipe', 'inherit'] });
  serverExit = new Promise((resolve) => server.on('exit', (code, signal) => resolve({ code, signal })));
  connection = lsp.createProtocolConnection(
    new lsp.StreamMessageReader(server.stdout), new lsp.StreamMessageWriter(server.stdin));
  connection.onNotification(lsp.PublishDiagnosticsNotification.type, (params) => {
    published.push(params);
    onPublish();
  });
  connection.listen();
});

after(() => {
  connection?.dispose();
  if (server && server.exitCode === null && server.signalCode === null) server.kill('SIGKILL');
});

describe('pcfg lsp on the shipped example', { timeout: 45000 }, () => {
  it('initializes with incremental sync and the features it offers', async () => {
    const reply = await request(lsp.InitializeRequest.type, {
      processId: process.pid,
      rootUri: null,
      capabilities: {
        textDocument: {
          documentSymbol: { hierarchicalDocumentSymbolSupport: true },
          hover: { contentFormat: ['markdown', 'plaintext'] },
          publishDiagnostics: { tagSupport: { valueSet: [1, 2] } },
        },
      },
    });
    const capabilities = reply.capabilities;
    assert.equal(capabilities.positionEncoding, 'utf-16', 'the default when the client offers none');
    assert.equal(capabilities.textDocumentSync.change, lsp.TextDocumentSyncKind.Incremental);
    for (const feature of ['definitionProvider', 'referencesProvider', 'documentHighlightProvider',
      'documentSymbolProvider', 'documentFormattingProvider', 'hoverProvider'])
      assert.ok(capabilities[feature], feature);
    assert.equal(capabilities.renameProvider.prepareProvider, true);
    assert.ok(capabilities.completionProvider);
    assert.equal(reply.serverInfo.name, 'pcfg');
    await connection.sendNotification(lsp.InitializedNotification.type, {});
    await connection.sendNotification(lsp.DidOpenTextDocumentNotification.type, {
      textDocument: { uri, languageId: 'textproto', version: 1, text },
    });
  });

  it('publishes no errors or warnings for the example', async () => {
    const diagnostics = await diagnosticsOf(1);
    const serious = diagnostics.filter((d) => d.severity !== lsp.DiagnosticSeverity.Information &&
                                              d.severity !== lsp.DiagnosticSeverity.Hint);
    assert.deepEqual(serious, []);
  });

  // mag0's dependency on imu0 (the first reference to it) and imu0's own entry.
  const reference = positionOf(text, 'peripheral_id: "imu0"', { shift: 17 });
  const definition = rangeOf(text, 'imu0', { after: 'peripherals { id: "imu0"' });
  const occurrences = [...text.matchAll(/"imu0"/g)].length;  // its id and every reference

  it('goes from a reference to the entry it names', async () => {
    const location = await request(lsp.DefinitionRequest.type, { ...textDocument(), position: reference });
    const one = Array.isArray(location) ? location : [location];
    assert.equal(one.length, 1, JSON.stringify(location));
    assert.equal(one[0].uri, uri);
    assert.deepEqual(one[0].range, definition);
    // Nothing to go to from a keyword.
    const none = await request(lsp.DefinitionRequest.type,
      { ...textDocument(), position: positionOf(text, 'PERIPHERAL_TYPE_IMU', { shift: 3 }) });
    assert.ok(none === null || (Array.isArray(none) && none.length === 0), JSON.stringify(none));
  });

  it('finds the references and highlights them', async () => {
    const withDeclaration = await request(lsp.ReferencesRequest.type,
      { ...textDocument(), position: reference, context: { includeDeclaration: true } });
    assert.equal(withDeclaration.length, occurrences);
    for (const location of withDeclaration) assert.equal(textIn(text, location.range), 'imu0');
    assert.ok(withDeclaration.some((l) => isDeepStrictEqual(l.range, definition)));
    const without = await request(lsp.ReferencesRequest.type,
      { ...textDocument(), position: reference, context: { includeDeclaration: false } });
    assert.equal(without.length, occurrences - 1);
    assert.ok(!without.some((l) => isDeepStrictEqual(l.range, definition)));

    const highlights = await request(lsp.DocumentHighlightRequest.type, { ...textDocument(), position: reference });
    assert.equal(highlights.length, occurrences);
    const written = highlights.filter((h) => h.kind === lsp.DocumentHighlightKind.Write);
    assert.deepEqual(written.map((h) => h.range), [definition], 'the id itself is where it is written');
    assert.ok(highlights.every((h) => h.kind === lsp.DocumentHighlightKind.Write ||
                                      h.kind === lsp.DocumentHighlightKind.Read));
  });

  it('renames an id everywhere it occurs', async () => {
    const prepared = await request(lsp.PrepareRenameRequest.type, { ...textDocument(), position: reference });
    assert.equal(prepared.placeholder, 'imu0');
    assert.equal(textIn(text, prepared.range), 'imu0');
    const rename = await request(lsp.RenameRequest.type, { ...textDocument(), position: reference, newName: 'imu9' });
    const edits = rename.changes[uri];
    assert.equal(edits.length, occurrences);
    for (const edit of edits) {
      assert.equal(textIn(text, edit.range), 'imu0');
      assert.equal(edit.newText, 'imu9');
    }
    // No rename where there is no id.
    const nothing = await request(lsp.PrepareRenameRequest.type,
      { ...textDocument(), position: positionOf(text, 'PERIPHERAL_TYPE_IMU', { shift: 3 }) });
    assert.equal(nothing, null);
  });

  it('lists the entries by id under their lists', async () => {
    const symbols = await request(lsp.DocumentSymbolRequest.type, textDocument());
    const peripherals = symbols.find((s) => s.name === 'peripherals');
    assert.ok(peripherals, JSON.stringify(symbols.map((s) => s.name)));
    const imu = peripherals.children.find((s) => s.name === 'imu0');
    assert.ok(imu);
    assert.equal(imu.detail, 'PERIPHERAL_TYPE_IMU');
    assert.deepEqual(imu.selectionRange, definition);
    const ids = peripherals.children.map((s) => s.name);
    for (const id of ['fpga0', 'imu0', 'mag0']) assert.ok(ids.includes(id), id);
    assert.equal(new Set(ids).size, ids.length, 'each entry once');
  });

  it('explains ids and fields on hover', async () => {
    const onId = await request(lsp.HoverRequest.type, { ...textDocument(), position: definition.start });
    assert.match(onId.contents.value, new RegExp(`referred to ${occurrences - 1} times`));
    assert.deepEqual(onId.range, definition);
    const onField = await request(lsp.HoverRequest.type,
      { ...textDocument(), position: positionOf(text, 'system_type: PERIPHERAL_SYSTEM_TYPE_GENERIC', { shift: 3 }) });
    assert.match(onField.contents.value, /system_type = \d+;/);
    assert.equal(onField.contents.kind, 'markdown');
  });

  it('completes fields inside an entry and values after "type: "', async () => {
    const labels = async (position) => {
      const result = await request(lsp.CompletionRequest.type, { ...textDocument(), position });
      const items = Array.isArray(result) ? result : result.items;
      return items.map((item) => item.label);
    };
    // At the start of mag0's dependency line: the fields mag0 may still take.
    const fields = await labels(positionOf(text, '  dependencies { peripheral_id: "imu0"'));
    assert.ok(fields.includes('dependencies'), 'repeated, so still offered');
    assert.ok(!fields.includes('id') && !fields.includes('type'), `already set: ${fields}`);
    const types = await labels(positionOf(text, 'PERIPHERAL_TYPE_MAG'));
    assert.ok(types.includes('PERIPHERAL_TYPE_IMU') && types.includes('PERIPHERAL_TYPE_FPGA'), `${types}`);
    assert.ok(types.every((label) => label.startsWith('PERIPHERAL_TYPE_')), `${types}`);
  });

  it('has nothing to change in the formatted example', async () => {
    const edits = await request(lsp.DocumentFormattingRequest.type,
      { ...textDocument(), options: { tabSize: 2, insertSpaces: true } });
    assert.deepEqual(edits, []);
  });

  // Incremental edits from here on.
  const dependencyLine = positionOf(text, '  dependencies { peripheral_id: "imu0"').line;
  assert.equal(text.split('\n')[dependencyLine + 1], '}', 'mag0\'s entry ends after its dependency');
  const inserted = '  dependencies { peripheral_id: "nowhere0" }\n';
  const dangling = rangeOf(inserted, 'peripheral_id: "nowhere0"');
  dangling.start.line = dangling.end.line = dependencyLine + 1;

  it('reports a reference to nothing, added by an incremental edit, where it is', async () => {
    const at = { line: dependencyLine + 1, character: 0 };
    await connection.sendNotification(lsp.DidChangeTextDocumentNotification.type, {
      textDocument: { uri, version: 2 },
      contentChanges: [{ range: { start: at, end: at }, text: inserted }],
    });
    const diagnostics = await diagnosticsOf(2);
    const found = diagnostics.filter((d) => d.code === 'dangling-reference');
    assert.equal(found.length, 1, JSON.stringify(diagnostics, null, 1));
    assert.deepEqual(found[0].range, dangling);
    assert.equal(found[0].severity, lsp.DiagnosticSeverity.Error);
    assert.match(found[0].message, /nowhere0/);
    // The server's text moved down a line below the edit: the later reference to imu0 is found
    // there.
    const later = positionOf(text, 'peripheral_id: "imu0" }', { shift: 17 });
    const moved = await request(lsp.DefinitionRequest.type,
      { ...textDocument(), position: { line: later.line + 1, character: later.character } });
    assert.deepEqual(moved?.range, definition);
  });

  it('keeps the last findings, said to be old, while the text does not parse', async () => {
    const top = { line: 0, character: 0 };
    await connection.sendNotification(lsp.DidChangeTextDocumentNotification.type, {
      textDocument: { uri, version: 3 },
      contentChanges: [{ range: { start: top, end: top }, text: 'peripherals {\n\n' }],
    });
    const diagnostics = await diagnosticsOf(3);
    const syntax = diagnostics.filter((d) => d.code === undefined && d.severity === lsp.DiagnosticSeverity.Error);
    assert.ok(syntax.length >= 1, `a syntax error: ${JSON.stringify(diagnostics, null, 1)}`);
    const old = diagnostics.filter((d) => d.code === 'dangling-reference');
    assert.equal(old.length, 1, JSON.stringify(diagnostics, null, 1));
    assert.match(old[0].message, /\(found in the last text that parsed\)$/);
    assert.equal(old[0].range.start.line, dangling.start.line + 2, 'moved down with its line');
    // Formatting text that does not parse is refused, not done wrong.
    await assert.rejects(request(lsp.DocumentFormattingRequest.type,
      { ...textDocument(), options: { tabSize: 2, insertSpaces: true } }));
  });

  it('answers a cancelled request, cancelled or with its result', async () => {
    // Back to the example, then a request that keeps the server busy (the outline of a large
    // document) so that the cancellation is likely to come before the server takes the request up.
    await connection.sendNotification(lsp.DidChangeTextDocumentNotification.type,
      { textDocument: { uri, version: 4 }, contentChanges: [{ text }] });
    const large = `${uri}.large.txtpb`;
    await connection.sendNotification(lsp.DidOpenTextDocumentNotification.type,
      { textDocument: { uri: large, languageId: 'textproto', version: 1, text: text.repeat(12) } });
    const busy = request(lsp.DocumentSymbolRequest.type, { textDocument: { uri: large } })
      .then((symbols) => assert.ok(Array.isArray(symbols)));
    const source = new lsp.CancellationTokenSource();
    const hover = request(lsp.HoverRequest.type, { ...textDocument(), position: definition.start }, source.token);
    source.cancel();
    let outcome;
    try {
      const result = await hover;
      assert.match(result.contents.value, /referred to/);
      outcome = 'answered';
    } catch (error) {
      assert.ok(error instanceof lsp.ResponseError, String(error));
      assert.equal(error.code, lsp.LSPErrorCodes.RequestCancelled, error.message);
      outcome = 'cancelled';
    }
    console.log(`# the cancelled hover was ${outcome}`);
    await busy;
    // The server goes on as before.
    const again = await request(lsp.HoverRequest.type, { ...textDocument(), position: definition.start });
    assert.match(again.contents.value, /referred to/);
    await connection.sendNotification(lsp.DidCloseTextDocumentNotification.type, { textDocument: { uri: large } });
  });

  it('shuts down and exits with status 0', async () => {
    assert.equal(await request(lsp.ShutdownRequest.type, undefined), null);
    await connection.sendNotification(lsp.ExitNotification.type);
    const { code, signal } = await within(serverExit, 'exit');
    assert.equal(signal, null);
    assert.equal(code, 0);
  });
});
