// pcfg lsp: the language server, over standard input and output.
#include <malloc.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <iostream>
#include <memory>

#include "common.h"
#include "server.h"

namespace pcfg::cli {

void AddLspCommand(CLI::App& app, int& exit_status) {
  CLI::App* command =
      app.add_subcommand("lsp", "Serve editors: the Language Server Protocol over stdin/stdout");
  command->footer(
      "Speaks the Language Server Protocol (3.17) on standard input and output for text\n"
      "configurations (.txtpb, .textproto, .pbtxt): every rule's findings as you type, go to\n"
      "definition, references, highlights and rename for peripheral and template ids, hover,\n"
      "completion from the schema, document symbols, formatting and range formatting that keep\n"
      "every comment. Editors start it themselves; see the README for Neovim, Vim, Emacs and\n"
      "VS Code. Nothing but the protocol goes to standard output; the server ends when the\n"
      "client says exit, when its input ends, or when the process that started it does.\n"
      "Exit status: 0 after shutdown and exit, 1 otherwise.");
  auto delimited = std::make_shared<bool>(false);
  command->add_flag(
      "--delimited", *delimited,
      "read messages separated by lines of ---, '#' lines left out (recorded sessions), not framed");
  command->callback([&exit_status, delimited] {
    // The editor that started the server may die without a word: end with it.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    signal(SIGPIPE, SIG_IGN);
    // A long-lived process that handles documents of tens of megabytes: blocks from 1 MiB up are
    // mapped on their own and go back to the system when freed. glibc would otherwise raise
    // that bound to the largest block freed so far and keep such blocks in its heap for good.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    std::cout.flush();
    exit_status = lsp::RunLanguageServer(
        STDIN_FILENO, STDOUT_FILENO,
        *delimited ? lsp::MessageReader::Style::kDelimited : lsp::MessageReader::Style::kFramed);
  });
}

}  // namespace pcfg::cli
