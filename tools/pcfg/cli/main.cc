// pcfg: compile, decode, check and inspect peripheral configurations.
#include <google/protobuf/stubs/common.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <new>

#include "common.h"

namespace {

using namespace pcfg::cli;

void AddHelpCommand(CLI::App& app, std::string& topic, int& exit_status) {
  CLI::App* help = app.add_subcommand("help", "Show help for pcfg or one of its commands");
  help->add_option("COMMAND", topic, "the command to explain");
  help->callback([&app, &topic, &exit_status] {
    if (topic.empty()) {
      // app.help() would explain the command that ran, which is help itself.
      std::cout << app.get_formatter()->make_help(&app, "pcfg", CLI::AppFormatMode::Normal);
      return;
    }
    try {
      std::cout << app.get_subcommand(topic)->help("pcfg");
    } catch (const CLI::OptionNotFound&) {
      std::cerr << "pcfg: no command '" << topic << "' (see pcfg help)\n";
      exit_status = kExitTrouble;
    }
  });
}

int Run(int argc, char** argv) {
  CLI::App app("pcfg: compile, decode, check and inspect peripheral configurations", "pcfg");
  app.set_version_flag("--version", std::string("pcfg ") + PCFG_VERSION + " (protobuf " +
                                        google::protobuf::internal::VersionString(GOOGLE_PROTOBUF_VERSION) +
                                        ")");
  app.require_subcommand(1);
  app.footer("Run 'pcfg help COMMAND' or 'pcfg COMMAND --help' for a command's options.");

  int exit_status = kExitOk;
  AddCompileCommand(app, exit_status);
  AddDecodeCommand(app, exit_status);
  AddCheckCommand(app, exit_status);
  AddDiffCommand(app, exit_status);
  AddFmtCommand(app, exit_status);
  AddLspCommand(app, exit_status);
  AddShowCommand(app, exit_status);
  AddGraphCommand(app, exit_status);
  std::string help_topic;
  AddHelpCommand(app, help_topic, exit_status);

  // CLI11 would take an unknown word for a stray argument and ask for a command.
  if (argc > 1 && argv[1][0] != '-') {
    std::string commands;
    bool known = false;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
      commands += (commands.empty() ? "" : ", ") + command->get_name();
      known = known || command->check_name(argv[1]);
    }
    if (!known) {
      std::cerr << "pcfg: no command '" << argv[1] << "'; the commands are " << commands
                << " (see pcfg help)\n";
      return kExitTrouble;
    }
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return kExitTrouble;
  }
  return exit_status;
}

}  // namespace

int main(int argc, char** argv) {
  pcfg::ReserveStandardDescriptors();
  pcfg::RemoveTemporaryFilesOnSignals();
  int status;
  try {
    status = Run(argc, argv);
  } catch (const std::bad_alloc&) {
    std::cerr << "pcfg: error: out of memory (nothing written)\n";
    return kExitTrouble;
  }
  // What went to standard output counts only if it arrived: a full disk or a closed pipe is trouble.
  std::cout.flush();
  if (!std::cout) {
    std::cerr << "pcfg: error: cannot write to standard output"
              << (errno ? std::string(": ") + std::strerror(errno) : "") << '\n';
    return kExitTrouble;
  }
  return status;
}
