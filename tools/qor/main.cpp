// qor: the library's files and services from the shell.
#include <qorc/qorc.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>
#include <vector>

#include "commands.h"
#include "support.h"

namespace {

constexpr char kRsaWarning[] =
    "Warning: this is textbook RSA, as the library does it: no padding scheme and no integrity check,\n"
    "so equal data give equal blocks and altered blocks decrypt to altered data without notice; keys\n"
    "come from the library's own random generator, which is not a cryptographic one.\n"
    "Do not use it to protect secrets.";

// The command line as the user typed it up to the deepest command parsed,
// for the hint that follows a usage error ("qor rsa keygen --help").
std::string CommandPath(const CLI::App& app) {
  std::string path = app.get_name();
  const CLI::App* current = &app;
  while (!current->get_subcommands().empty()) {
    current = current->get_subcommands().front();
    path += " " + current->get_name();
  }
  return path;
}

CLI::App* AddForce(CLI::App* command, bool* replace) {
  command->add_flag("-f,--force", *replace, "Replace an existing output file");
  return command;
}

int Run(int argc, char** argv) {
  CLI::App app{"Works with the files and services of the qorc library.", "qor"};
  app.set_version_flag("--version", "qor " QOR_VERSION " (qorc library " QOR_VERSION ")");
  app.require_subcommand(1);
  app.fallthrough();
  app.footer(
      "FILE - is standard input or output where that makes sense.\n"
      "Exit status: 0 success; 1 failure, with the library's message; 2 a usage error.\n"
      "Run 'qor COMMAND --help' for the options of a command.");
  bool quiet = false;
  app.add_flag("-q,--quiet", quiet, "No progress bar (it is shown only on a terminal, for work over a second)");

  std::string in;
  std::string out;
  std::string file;
  std::vector<std::string> files;
  bool replace = false;

  CLI::App* pack = app.add_subcommand("pack", "Compress IN into the library's block-compressed format");
  pack->add_option("IN", in, "File to compress (- for standard input)")->required();
  pack->add_option("OUT", out, "Compressed file to write (- for standard output)")->required();
  AddForce(pack, &replace);

  CLI::App* unpack = app.add_subcommand("unpack", "Decompress a compressed file, checking every block");
  unpack->add_option("IN", in, "Compressed file (- for standard input)")->required();
  unpack->add_option("OUT", out, "File to write (- for standard output)")->required();
  AddForce(unpack, &replace);

  long long offset = 0;
  long long length = -1;
  CLI::App* cat = app.add_subcommand("cat", "Print uncompressed bytes of a compressed file, read in place");
  cat->add_option("FILE", file, "Compressed file")->required();
  cat->add_option("--offset", offset, "First byte to print (0: the start)")->check(CLI::NonNegativeNumber);
  cat->add_option("--length", length, "Bytes to print (default: up to the end)")->check(CLI::NonNegativeNumber);

  CLI::App* check = app.add_subcommand("check", "Verify that compressed files are sound");
  check->add_option("FILE", files, "Compressed files")->required();

  bool listBlocks = false;
  CLI::App* info = app.add_subcommand("info", "Show the blocks, sizes, ratio and flush points of a compressed file");
  info->add_option("FILE", file, "Compressed file")->required();
  info->add_flag("--blocks", listBlocks, "List every block");

  CLI::App* shield = app.add_subcommand("shield", "Turn bytes into the library's shielded (printable) text");
  shield->add_option("IN", in, "File to shield (- for standard input)")->required();
  shield->add_option("OUT", out, "Shielded file to write (- for standard output)")->required();
  AddForce(shield, &replace);

  CLI::App* unshield = app.add_subcommand("unshield", "Turn shielded text back into bytes");
  unshield->add_option("IN", in, "Shielded file (- for standard input)")->required();
  unshield->add_option("OUT", out, "File to write (- for standard output)")->required();
  AddForce(unshield, &replace);

  CLI::App* crc = app.add_subcommand("crc", "Print the CRC-32 of files (as zlib's crc32), in hexadecimal");
  crc->add_option("FILE", files, "Files (none or -: standard input)");
  CLI::App* adler = app.add_subcommand("adler", "Print the Adler-32 of files (as zlib's adler32), in hexadecimal");
  adler->add_option("FILE", files, "Files (none or -: standard input)");

  CLI::App* rsa = app.add_subcommand("rsa", "Textbook RSA: make keys, encrypt and decrypt");
  rsa->require_subcommand(1);
  rsa->footer(kRsaWarning);
  int bits = 0;
  std::string prefix = "qor-rsa";
  unsigned int seed = 0;
  CLI::App* keygen = rsa->add_subcommand("keygen", "Make a key pair: PREFIX.pub and PREFIX.key");
  keygen->add_option("BITS", bits, "Key size in bits, a multiple of 8")->required()->check(CLI::Range(8, 16384));
  keygen->add_option("-o,--output", prefix, "Prefix of the key files")->capture_default_str();
  keygen->add_option("--seed", seed, "A non-zero seed makes the pair reproducible");
  AddForce(keygen, &replace);
  keygen->footer(kRsaWarning);
  std::string key;
  bool raw = false;
  CLI::App* encrypt = rsa->add_subcommand("encrypt", "Encrypt IN with KEY (usually the .pub file)");
  CLI::App* decrypt = rsa->add_subcommand("decrypt", "Decrypt IN with KEY (usually the .key file)");
  for (CLI::App* command : {encrypt, decrypt}) {
    command->add_option("KEY", key, "Key file")->required();
    command->add_option("IN", in, "Input (- for standard input)")->required();
    command->add_option("OUT", out, "Output (- for standard output)")->required();
    command->add_flag("--raw", raw, "Bare cipher blocks, without the header that keeps the data's length");
    AddForce(command, &replace);
    command->footer(kRsaWarning);
  }

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // --help and --version end the parse too, successfully.
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) return app.exit(error);
    std::fprintf(stderr, "qor: %s (see '%s --help')\n", error.what(), CommandPath(app).c_str());
    return qor::kExitUsage;
  }
  if (!quiet) qor::InstallProgressDisplay();
  if (files.empty()) files.push_back("-");

  if (*check) return qor::Check(files);
  if (*crc) return qor::PrintChecksums(qor::Checksum::kCrc32, files);
  if (*adler) return qor::PrintChecksums(qor::Checksum::kAdler32, files);
  bool done = false;
  if (*pack) done = qor::Pack(in, out, replace);
  if (*unpack) done = qor::Unpack(in, out, replace);
  if (*cat) done = qor::Cat(file, offset, length);
  if (*info) done = qor::Info(file, listBlocks);
  if (*shield) done = qor::Shield(in, out, replace);
  if (*unshield) done = qor::Unshield(in, out, replace);
  if (*keygen) done = qor::RsaKeygen(bits, prefix, seed, replace);
  if (*encrypt) done = qor::RsaEncrypt(key, in, out, raw, replace);
  if (*decrypt) done = qor::RsaDecrypt(key, in, out, raw, replace);
  return done ? qor::kExitSuccess : qor::ReportPendingFailure();
}

}  // namespace

int main(int argc, char** argv) {
  Copen();
  const int status = Run(argc, argv);
  Cclose();
  return status;
}
