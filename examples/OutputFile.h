// A file that is opened before there is something to write, so that a path that can't be written
// is noticed in time.
#ifndef EXAMPLES_OUTPUTFILE_H
#define EXAMPLES_OUTPUTFILE_H

#include <string>

#include "Signature.h"

class OutputFile {
 public:
  // Opens the path, for the format of its ending. Nothing in the file changes. Throws
  // std::system_error.
  explicit OutputFile(const std::string& path);
  // A file that this object has made goes again unless it was written.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Replaces what is in the file, once. Throws std::system_error.
  void write(const Signature& signature);

 private:
  const std::string m_path;
  bool m_made = true;
  bool m_written = false;
  std::FILE* m_file = nullptr;
};

#endif
