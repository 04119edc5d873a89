#include "OutputFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace {

[[noreturn]] void fail(const std::string& path) {
  throw std::system_error(errno, std::generic_category(), path);
}

}  // namespace

OutputFile::OutputFile(const std::string& path) : m_path(path) {
  int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (descriptor < 0 && errno == EEXIST) {
    m_made = false;
    descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  }
  if (descriptor < 0) fail(path);
  m_file = fdopen(descriptor, "w");
}

OutputFile::~OutputFile() {
  if (m_file != nullptr) std::fclose(m_file);
  if (m_made && !m_written) unlink(m_path.c_str());
}

void OutputFile::write(const Signature& signature) {
  // A pipe has nothing to truncate.
  if (ftruncate(fileno(m_file), 0) != 0 && errno != EINVAL) fail(m_path);
  m_written = writerFor(m_path)(signature, m_file);
  const int reason = errno;
  std::FILE* const file = m_file;
  m_file = nullptr;
  if (std::fclose(file) != 0) {
    m_written = false;
    fail(m_path);
  }
  if (!m_written) {
    errno = reason;
    fail(m_path);
  }
}
