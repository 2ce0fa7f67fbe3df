// A file that a command makes: its owner's alone, and never over another one.
#pragma once

#include <string>

namespace quorvel::cm {

class OutputFile {
  public:
    // Throws RecordError when something is there, or when it cannot be made.
    explicit OutputFile(std::string path);
    // Without close(), it was in vain, and goes.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Both throw RecordError when it cannot be written.
    void write(const std::string& text);
    void close();

  private:
    std::string path_;
    int fd_;
};

}  // namespace quorvel::cm
