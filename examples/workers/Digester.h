// A worker of the pool: takes file after file from a common list and digests it.
#pragma once

#include <ormutil/Event.h>
#include <ormutil/Path.h>
#include <ormutil/Runnable.h>

#include <atomic>
#include <vector>

namespace workers {

struct Digest {
  orm::String name;
  orm::String hex;  // SHA-256
};

// What the workers share. The files are set before the workers start; each takes the next one by the counter.
struct Job {
  orm::Path folder;
  std::vector<orm::String> files;
  std::atomic<size_t> next = 0;
  std::atomic<size_t> finished = 0;
  std::atomic<uint64_t> bytes = 0;
};

class Digester : public orm::FaceObject<orm::Runnable> {
 public:
  explicit Digester(Job& rJob) : mrJob(rJob) {}

  bool HasEnded() const { return WaitForSingleObject(mhThread, 0) == WAIT_OBJECT_0; }

  // After the thread has ended: what it digested, and the error that ended it (without layers when none did).
  const std::vector<Digest>& GetDigests() const { return mDigests; }
  const orm::Error& GetError() const { return mError; }

 private:
  void Run() override;
  orm::String DigestFile(const orm::String& name);

  Job& mrJob;
  std::vector<Digest> mDigests;
  orm::Error mError;
};

}  // namespace workers
