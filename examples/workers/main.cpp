// orm-workers: digests the files of a folder with a pool of threads.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <thread>

#include "Digester.h"

using namespace orm;
using namespace workers;

namespace {

volatile std::sig_atomic_t interrupted = 0;

void ShowProgress(const Job& job) {
  std::fprintf(stderr, "\r%zu of %zu files, %.1f MB ", job.finished.load(), job.files.size(),
               static_cast<double>(job.bytes) / 1e6);
}

// Waits for all workers, shows how far they are, and interrupts them once when the user asks for it.
void Supervise(const Job& job, std::vector<FacePtr<Digester>>& rPool) {
  const bool showProgress = isatty(STDERR_FILENO) != 0;
  bool told = false;
  Event tick(Event::MANUAL);
  while (job.finished < job.files.size()) {
    if (interrupted && !told) {
      told = true;
      for (auto& worker : rPool) worker->Interrupt();
    }
    const bool allEnded =
        std::all_of(rPool.begin(), rPool.end(), [](auto& worker) { return worker->HasEnded(); });
    if (allEnded) break;
    if (showProgress) ShowProgress(job);
    tick.Wait(20);
  }
  for (auto& worker : rPool) worker->Wait();
  if (showProgress) std::fprintf(stderr, "\r%40s\r", "");
}

// The digests in the order of the names, then each worker's error. Returns the exit code.
int Report(const std::vector<FacePtr<Digester>>& pool) {
  std::vector<Digest> digests;
  int code = 0;
  for (const auto& worker : pool) {
    digests.insert(digests.end(), worker->GetDigests().begin(), worker->GetDigests().end());
  }
  std::sort(digests.begin(), digests.end(), [](const Digest& a, const Digest& b) { return a.name < b.name; });
  for (const Digest& digest : digests) std::printf("%s  %s\n", digest.hex.GetBegin(), digest.name.GetBegin());
  for (size_t i = 0; i < pool.size(); ++i) {
    const Error& error = pool[i]->GetError();
    std::fprintf(stderr, "worker %zu: %zu files", i + 1, pool[i]->GetDigests().size());
    for (unsigned layer = 0; layer < error.GetLayerCount(); ++layer) {
      std::fprintf(stderr, "%s%s", layer == 0 ? ", then: " : " ", error.GetMessage(layer).GetBegin());
    }
    std::fprintf(stderr, "\n");
    if (!error.IsEmpty()) code = interrupted ? 130 : 1;
  }
  return code;
}

// The folder as the user wrote it, made absolute by the platform: "/home/me" becomes "Z:\home\me".
String FullPath(const std::string& text) {
  char buffer[1024];
  const DWORD length = GetFullPathNameA(text.c_str(), sizeof buffer, buffer, nullptr);
  if (length == 0 || length >= sizeof buffer) throw MakeSystemError(GetLastError(), text.c_str(), false);
  return buffer;
}

int DigestFolder(const std::string& folder, unsigned threads) {
  Job job;
  if (!job.folder.Set(FullPath(folder))) throw MakeSystemError(ERROR_BAD_PATHNAME, folder.c_str(), false);
  job.folder.Enumerate("*", 0, FILE_ATTRIBUTE_DIRECTORY, job.files);
  std::signal(SIGINT, [](int) { interrupted = 1; });
  std::vector<FacePtr<Digester>> pool;
  for (unsigned i = 0; i < threads; ++i) {
    pool.push_back(FacePtr<Digester>::Adopt(new Digester(job)));
    pool.back()->CreateThread(true, true);
  }
  Supervise(job, pool);
  return Report(pool);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "Digests (SHA-256) the files of a folder with a pool of threads.\n"
      "Ctrl-C interrupts the workers; each then tells how far it came.\n\n"
      "  orm-workers src/shared\n"
      "  orm-workers --threads 8 'C:\\Windows\\System32'\n\n"
      "Exit codes: 0 all digested, 1 a worker failed, 2 usage, 130 interrupted."};
  std::string folder;
  unsigned threads = std::max(2u, std::thread::hardware_concurrency());
  app.add_option("FOLDER", folder, "a Unix path or one with a drive letter")->required();
  app.add_option("-t,--threads", threads, "workers")->check(CLI::Range(1, 256))->capture_default_str();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  try {
    return DigestFolder(folder, threads);
  } catch (const Error& error) {
    std::fprintf(stderr, "orm-workers: %s\n", error.Format().GetBegin());
    return 1;
  }
}
