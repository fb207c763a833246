// Starting and steering another process.
#include "HostProcess.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

HostProcess::HostProcess(std::vector<std::string> arguments, uid_t user, const std::string& program) {
  int input[2], output[2];
  if (pipe(input) != 0 || pipe(output) != 0) std::abort();
  arguments.insert(arguments.begin(), program);
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  mPid = fork();
  if (mPid == 0) {
    dup2(input[0], 0);
    dup2(output[1], 1);
    for (int end : {input[0], input[1], output[0], output[1]}) close(end);
    if (user != 0 && (setgid(user) != 0 || setuid(user) != 0)) _exit(99);
    execv(pointers[0], pointers.data());
    _exit(99);
  }
  close(input[0]);
  close(output[1]);
  mInput = input[1];
  mOutput = output[0];
}

HostProcess::~HostProcess() {
  Kill();
  close(mInput);
  close(mOutput);
}

std::string HostProcess::ReadLine() {
  std::string line;
  for (char c; read(mOutput, &c, 1) == 1 && c != '\n';) line += c;
  return line;
}

void HostProcess::Continue() {
  if (write(mInput, "\n", 1) != 1) std::abort();
}

void HostProcess::Kill() {
  if (mPid == 0) return;
  kill(mPid, SIGKILL);
  waitpid(mPid, nullptr, 0);
  mPid = 0;
}

std::vector<std::string> HostProcess::Finish() {
  std::vector<std::string> lines;
  for (std::string line = ReadLine(); !line.empty(); line = ReadLine()) lines.push_back(line);
  int status = 0;
  waitpid(mPid, &status, 0);
  mPid = 0;
  if (status != 0) lines.push_back("ended with status " + std::to_string(status));
  return lines;
}
