// A file that is opened before there is something to write, so that a path that cannot be written
// is reported early.
#ifndef TOOLS_OUTPUTFILE_H
#define TOOLS_OUTPUTFILE_H

#include <string>

#include "Signature.h"

class OutputFile {
 public:
  // Opens the path; its suffix selects the format. Does not change the file yet. Throws
  // std::system_error.
  explicit OutputFile(const std::string& path);
  // Removes a file that this object created and did not write.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Replaces the contents of the file. May be called once. Throws std::system_error.
  void write(const Signature& signature);

 private:
  const std::string m_path;
  bool m_made = true;
  bool m_written = false;
  std::FILE* m_file = nullptr;
};

#endif
