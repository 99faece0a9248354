// Starts `pcfg lsp` for text configuration files (.txtpb, .textproto, .pbtxt) and connects it to
// the editor: diagnostics, go to definition and references of peripheral and template ids,
// rename, symbols, hover, completion and formatting all come from the server.
'use strict';

const vscode = require('vscode');
const { LanguageClient, TransportKind } = require('vscode-languageclient/node');

let client;

function serverOptions() {
  const command = vscode.workspace.getConfiguration('pcfg').get('path') || 'pcfg';
  return { command, args: ['lsp'], transport: TransportKind.stdio };
}

async function start(context) {
  client = new LanguageClient('pcfg', 'pcfg', serverOptions(), {
    documentSelector: [
      { scheme: 'file', language: 'textproto' },
      { scheme: 'untitled', language: 'textproto' },
    ],
    outputChannelName: 'pcfg',
  });
  try {
    await client.start();
  } catch (error) {
    const path = serverOptions().command;
    vscode.window.showErrorMessage(
      `pcfg lsp did not start (${error.message || error}). Set "pcfg.path" to the pcfg program (now: ${path}).`);
  }
}

async function activate(context) {
  context.subscriptions.push(
    vscode.commands.registerCommand('pcfg.restartServer', async () => {
      if (client) await client.stop().catch(() => {});
      await start(context);
    }),
    // The "N references" lens over each entry: the editor's own references view at its id.
    vscode.commands.registerCommand('pcfg.showReferences', async (uri, position) => {
      const at = new vscode.Position(position.line, position.character);
      await vscode.commands.executeCommand('editor.action.findReferences', vscode.Uri.parse(uri), at);
    }),
    vscode.workspace.onDidChangeConfiguration(async (event) => {
      if (event.affectsConfiguration('pcfg.path')) await vscode.commands.executeCommand('pcfg.restartServer');
    }));
  await start(context);
}

async function deactivate() {
  if (client) await client.stop();
}

module.exports = { activate, deactivate };
