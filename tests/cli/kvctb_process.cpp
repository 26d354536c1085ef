// Process runner and shared demo database of the kvctb tests.
#include "cli/kvctb_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "support/records.h"

namespace kvc::cli::testing {
namespace fs = std::filesystem;

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return "";
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

bool FileExists(const std::string& path) { return fs::exists(path); }

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
}

namespace {

RunningKvctb StartProgram(const std::string& path, const std::vector<std::string>& args,
                          const RunOptions& options) {
  static std::atomic<int> counter{0};
  const std::string base = (fs::temp_directory_path() / ("kvctb_run_" + std::to_string(getpid()) +
                                                         "_" + std::to_string(counter++)))
                               .string();
  const std::string out_path = base + ".out", err_path = base + ".err", in_path = base + ".in";
  WriteFile(in_path, options.stdin_text);

  std::vector<std::string> env_strings = {"PATH=/usr/bin:/bin", "LANG=C.UTF-8"};
  if (const char* asan = std::getenv("ASAN_OPTIONS"))
    env_strings.push_back(std::string("ASAN_OPTIONS=") + asan);
  // The leak checker of the sanitizer build lists the suppressions it used
  // (the Firebird client's) on standard error at exit; the tests compare
  // standard error, so the list is left out.
  if (const char* lsan = std::getenv("LSAN_OPTIONS"))
    env_strings.push_back(std::string("LSAN_OPTIONS=") + lsan + ":print_suppressions=0");
  for (const auto& [k, v] : options.env) env_strings.push_back(k + "=" + v);
  std::vector<char*> envp;
  for (auto& s : env_strings) envp.push_back(s.data());
  envp.push_back(nullptr);
  std::vector<std::string> argv_strings = {path};
  argv_strings.insert(argv_strings.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& s : argv_strings) argv.push_back(s.data());
  argv.push_back(nullptr);

  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    if (!options.cwd.empty() && chdir(options.cwd.c_str()) != 0) _exit(126);
    const int in = open(in_path.c_str(), O_RDONLY);
    const int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int err = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (in < 0 || out < 0 || err < 0) _exit(126);
    dup2(in, 0);
    dup2(out, 1);
    dup2(err, 2);
    if (options.file_size_limit >= 0) {
      const rlimit limit{static_cast<rlim_t>(options.file_size_limit),
                         static_cast<rlim_t>(options.file_size_limit)};
      if (setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(126);
    }
    execve(argv[0], argv.data(), envp.data());
    _exit(127);
  }
  return {pid, base};
}

}  // namespace

RunningKvctb StartKvctb(const std::vector<std::string>& args, const RunOptions& options) {
  return StartProgram(KVCTB_PATH, args, options);
}

RunResult WaitKvctb(const RunningKvctb& running) {
  int status = 0;
  while (waitpid(running.pid, &status, 0) < 0 && errno == EINTR) {
  }
  RunResult r;
  r.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  r.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + r.signal;
  r.out = ReadFile(running.base + ".out");
  r.err = ReadFile(running.base + ".err");
  fs::remove(running.base + ".out");
  fs::remove(running.base + ".err");
  fs::remove(running.base + ".in");
  return r;
}

RunResult RunKvctb(const std::vector<std::string>& args, const RunOptions& options) {
  return WaitKvctb(StartKvctb(args, options));
}

RunResult RunProgram(const std::string& path, const std::vector<std::string>& args,
                     const RunOptions& options) {
  return WaitKvctb(StartProgram(path, args, options));
}

std::string NewDirectory(const std::string& name) {
  const fs::path dir =
      fs::temp_directory_path() / ("kvctb_test_" + std::to_string(getpid())) / name;
  fs::remove_all(dir);
  fs::create_directories(dir);
  return dir.string();
}

namespace {

// Removes the test process's temporary directories when it ends.
void RemoveTemporaryDirectoriesAtExit() {
  static const bool registered = [] {
    std::atexit([] {
      std::error_code ec;
      fs::remove_all(fs::temp_directory_path() / ("kvctb_test_" + std::to_string(getpid())), ec);
    });
    return true;
  }();
  (void)registered;
}

// A fresh directory `name` holding a copy of `database` under `file`.
std::string DirectoryWithCopy(const std::string& database, const std::string& name,
                              const std::string& file) {
  const std::string dir = NewDirectory(name);
  fs::copy_file(database, dir + "/" + file);
  return dir;
}

// Runs kvctb in `dir`; throws with its standard error when it fails.
void MustRun(const std::vector<std::string>& args, const std::string& dir) {
  const RunResult r = RunKvctb(args, In(dir));
  if (r.exit_code != 0) throw std::runtime_error("kvctb set-up command failed: " + r.err);
}

}  // namespace

std::string DirectoryWithDemo(const std::string& name) {
  static const std::string demo = [] {
    const std::string dir = NewDirectory("_demo_template");
    MustRun({"--db", "sqlite:demo.db", "--quiet", "init", "--demo"}, dir);
    RemoveTemporaryDirectoriesAtExit();
    return dir + "/demo.db";
  }();
  return DirectoryWithCopy(demo, name, "demo.db");
}

void LoadSmallBooks(const std::string& url, const std::string& dir) {
  WriteFile(dir + "/books_chart.csv", SmallChart());
  WriteFile(dir + "/books_entries.txt", TwoRecords());
  MustRun({"--db", url, "--quiet", "init"}, dir);
  MustRun({"--db", url, "--quiet", "chart-import", "books_chart.csv"}, dir);
  MustRun({"--db", url, "--quiet", "post", "books_entries.txt", "--document", "1"}, dir);
  fs::remove(dir + "/books_chart.csv");
  fs::remove(dir + "/books_entries.txt");
}

std::string DirectoryWithSmallBooks(const std::string& name) {
  static const std::string books = [] {
    const std::string dir = NewDirectory("_small_books_template");
    LoadSmallBooks("sqlite:books.db", dir);
    RemoveTemporaryDirectoriesAtExit();
    return dir + "/books.db";
  }();
  return DirectoryWithCopy(books, name, "books.db");
}

std::string SmallChart() {
  return "CONTA,CONTA_SUPERIORA,NIVEL,NIVEL_DIVISAO,LANCAMENTO_DIVIDIDO,DES_CONTA\n"
         "1,,S,0,N,Ativo\n"
         "1.1.1.01,1,A,1,S,Caixa\n"
         "2,,S,0,N,Passivo\n"
         "2.9.1.01,2,A,1,S,Resultado do exercicio\n"
         "3,,S,0,N,Receitas\n"
         "3.1.1.01,3,A,1,S,Vendas\n"
         "5,,S,0,N,Despesas\n"
         "5.1.1.01,5,A,1,S,Custos\n";
}

kvc::testing::RegistroCampos SmallBooksRecord() {
  kvc::testing::RegistroCampos c;
  c.yymm = "2406";
  c.dia = "20";
  c.historico = "VENDA";
  c.conta1 = "1.1.1.01";
  c.conta2 = "3.1.1.01";
  c.centavos = 1000;
  return c;
}

std::string TwoRecords() {
  kvc::testing::RegistroCampos a;
  a.yymm = "2406";
  a.dia = "15";
  a.historico = "VENDA TESTE";
  a.conta1 = "1.1.1.01";
  a.conta2 = "3.1.1.01";
  a.codigo_divisao = "3";
  a.centavos = 12345;
  kvc::testing::RegistroCampos b = a;
  b.conta1 = "5.1.1.01";
  b.conta2 = "1.1.1.01";
  b.marca = "-";
  b.centavos = 500;
  return kvc::testing::Registro(a) + "\n" + kvc::testing::Registro(b) + "\n";
}

}  // namespace kvc::cli::testing
