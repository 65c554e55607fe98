// qor: the library's files and services from the shell.
#include <qorc/qorc.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif
#include <string>
#include <thread>
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

// One compressing thread per processor, as far as the library takes them.
int DefaultJobs() {
  const unsigned int processors = std::thread::hardware_concurrency();
  if (processors == 0) return 1;
  return processors > 64 ? 64 : static_cast<int>(processors);
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
  int jobs = DefaultJobs();
  pack->add_option("-j,--jobs", jobs, "Threads compressing blocks (the file is the same for every count)")
      ->capture_default_str()
      ->check(CLI::Range(1, 64));

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

  bool yes = false;
  CLI::App* lock = app.add_subcommand("lock", "Lock files of documents: who holds them, and stale entries");
  lock->require_subcommand(1);
  CLI::App* lockStatus = lock->add_subcommand("status", "List the lockers of DOC, and whether their processes run");
  CLI::App* lockClear =
      lock->add_subcommand("clear-stale", "Remove the entries of this machine's processes that are gone");
  for (CLI::App* command : {lockStatus, lockClear}) command->add_option("DOC", file, "Document")->required();
  lockClear->add_flag("-y,--yes", yes, "Do not ask before removing");

  qor::RegStore store;
  std::string regKey;
  std::string entry;
  CLI::App* reg = app.add_subcommand("reg", "Settings keys: list, read, export and import (.reg files)");
  reg->require_subcommand(1);
  reg->add_option("--store", store.userPath,
                  "The user's settings store, HKEY_CURRENT_USER: a file or a postgresql:// URI (default: the user's "
                  "conventional store; on Windows the registry)");
  reg->add_option("--machine-store", store.machinePath,
                  "The machine's settings store, HKEY_LOCAL_MACHINE: a file or a postgresql:// URI (default: the "
                  "machine's conventional store; on Windows the registry)");
  reg->add_flag("--machine", store.machine, "Key paths without a root name are under HKEY_LOCAL_MACHINE");
  reg->footer(
      "KEY is a path with \\ or /, beginning with HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE or HKEY_CLASSES_ROOT\n"
      "(HKEY_LOCAL_MACHINE\\Software\\Classes); a root alone is the whole store. Without a root name the path\n"
      "is under HKEY_CURRENT_USER (HKEY_LOCAL_MACHINE with --machine). import stores each section of the file\n"
      "in the store of its root.");
  CLI::App* regList = reg->add_subcommand("list", "List the subkeys (ending in \\) and the entries of KEY");
  CLI::App* regGet = reg->add_subcommand("get", "Print an entry of KEY as a .reg file shows it");
  CLI::App* regExport = reg->add_subcommand("export", "Write KEY and everything under it to a .reg file");
  CLI::App* regImport =
      reg->add_subcommand("import", "Store the keys and entries of a .reg file, each in the store of its root");
  for (CLI::App* command : {regList, regGet, regExport}) {
    command->add_option("KEY", regKey, "Key path, with \\ or /, perhaps beginning with a root name")->required();
  }
  regGet->add_option("ENTRY", entry, "Entry name (empty: the default entry)")->required();
  regExport->add_option("FILE", file, "The .reg file to write")->required();
  regImport->add_option("FILE", file, "The .reg file to read")->required();

  CLI::App* storage = app.add_subcommand(
      "storage", "Compound documents: their streams, and the Contents stream of the library's files");
  storage->require_subcommand(1);
  CLI::App* storageList = storage->add_subcommand("list", "List the storages (ending in /) and streams of DOC");
  storageList->add_option("DOC", file, "Compound document")->required();
  CLI::App* storageGet = storage->add_subcommand("get", "Copy the Contents stream of DOC to OUT");
  storageGet->add_option("DOC", file, "Compound document")->required();
  storageGet->add_option("OUT", out, "File to write (- for standard output)")->required();
  AddForce(storageGet, &replace);
  CLI::App* storagePut = storage->add_subcommand("put", "Store IN as the Contents stream of DOC (made if missing)");
  storagePut->add_option("DOC", file, "Compound document")->required();
  storagePut->add_option("IN", in, "File to store (- for standard input)")->required();

  unsigned int baud = 9600;
  long long lines = -1;
  std::string port;
  std::string text;
  CLI::App* serial = app.add_subcommand("serial", "Serial lines: ports, reading lines, sending text");
  serial->require_subcommand(1);
  CLI::App* serialPorts = serial->add_subcommand("ports", "List the serial ports that can be opened now");
  CLI::App* serialRead = serial->add_subcommand("read", "Print the lines an instrument sends, until interrupted");
  CLI::App* serialSend = serial->add_subcommand("send", "Send TEXT (no line end is added)");
  for (CLI::App* command : {serialRead, serialSend}) {
    command->add_option("PORT", port, "COMn or a device path")->required();
    command->add_option("--baud", baud, "Bits per second")->capture_default_str()->check(CLI::PositiveNumber);
  }
  serialRead->add_option("--lines", lines, "Stop after this many lines")->check(CLI::PositiveNumber);
  serialSend->add_option("TEXT", text, "Text to send")->required();

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // --help and --version end the parse too, successfully.
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) return app.exit(error);
    std::fprintf(stderr, "qor: %s (see '%s --help')\n", error.what(), CommandPath(app).c_str());
    return qor::kExitUsage;
  }
  if (!quiet) qor::InstallProgressDisplay();
  qor::InstallReportHandler();
  if (files.empty()) files.push_back("-");

  if (*check) return qor::Check(files);
  if (*crc) return qor::PrintChecksums(qor::Checksum::kCrc32, files);
  if (*adler) return qor::PrintChecksums(qor::Checksum::kAdler32, files);
  bool done = false;
  if (*pack) done = qor::Pack(in, out, replace, jobs);
  if (*unpack) done = qor::Unpack(in, out, replace);
  if (*cat) done = qor::Cat(file, offset, length);
  if (*info) done = qor::Info(file, listBlocks);
  if (*shield) done = qor::Shield(in, out, replace);
  if (*unshield) done = qor::Unshield(in, out, replace);
  if (*keygen) done = qor::RsaKeygen(bits, prefix, seed, replace);
  if (*encrypt) done = qor::RsaEncrypt(key, in, out, raw, replace);
  if (*decrypt) done = qor::RsaDecrypt(key, in, out, raw, replace);
  if (*lockStatus) done = qor::LockStatus(file);
  if (*lockClear) done = qor::LockClearStale(file, yes);
  if (*regList) done = qor::RegList(store, regKey);
  if (*regGet) done = qor::RegGet(store, regKey, entry);
  if (*regExport) done = qor::RegExport(store, regKey, file);
  if (*regImport) done = qor::RegImport(store, file);
  if (*storageList) done = qor::StorageList(file);
  if (*storageGet) done = qor::StorageGet(file, out, replace);
  if (*storagePut) done = qor::StoragePut(file, in);
  if (*serialPorts) done = qor::SerialPorts();
  if (*serialRead) done = qor::SerialRead(port, baud, lines);
  if (*serialSend) done = qor::SerialSend(port, baud, text);
  return done ? qor::kExitSuccess : qor::ReportPendingFailure();
}

}  // namespace

int main(int argc, char** argv) {
#ifdef _WIN32
  // Data goes through the standard streams byte for byte, as on POSIX.
  _setmode(_fileno(stdin), _O_BINARY);
  _setmode(_fileno(stdout), _O_BINARY);
#endif
  Copen();
  const int status = Run(argc, argv);
  Cclose();
  return status;
}
