// pcfg: compile, decode, check and inspect peripheral configurations.
#include <google/protobuf/stubs/common.h>

#include <iostream>

#include "common.h"

namespace {

const char kVersion[] = "1.0.0";

}  // namespace

int main(int argc, char** argv) {
  using namespace pcfg::cli;
  CLI::App app("pcfg: compile, decode, check and inspect peripheral configurations", "pcfg");
  app.set_version_flag("--version", std::string("pcfg ") + kVersion + " (protobuf " +
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
  AddShowCommand(app, exit_status);
  AddGraphCommand(app, exit_status);

  std::string help_topic;
  CLI::App* help = app.add_subcommand("help", "Show help for pcfg or one of its commands");
  help->add_option("COMMAND", help_topic, "the command to explain");
  help->callback([&] {
    if (help_topic.empty()) {
      std::cout << app.help();
      return;
    }
    try {
      std::cout << app.get_subcommand(help_topic)->help("pcfg");
    } catch (const CLI::OptionNotFound&) {
      std::cerr << "pcfg: no command '" << help_topic << "' (see pcfg help)\n";
      exit_status = kExitTrouble;
    }
  });

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
