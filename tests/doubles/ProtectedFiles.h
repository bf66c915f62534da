/// Files of other users in a directory that everybody may write to, as kernels with
/// fs.protected_regular treat them, on any kernel and for any user. A program that links
/// protected_files has its own calls of open sent here by the linker; calls of shared libraries are
/// not.
#ifndef TESTS_DOUBLES_PROTECTEDFILES_H
#define TESTS_DOUBLES_PROTECTEDFILES_H

namespace tests {

/// While it lives, this thread's opening of a file that exists fails with EACCES when it asks for
/// O_CREAT. One at a time.
class ProtectedFiles {
 public:
  ProtectedFiles();
  ~ProtectedFiles();
  ProtectedFiles(const ProtectedFiles&) = delete;
  ProtectedFiles& operator=(const ProtectedFiles&) = delete;
};

}  // namespace tests

#endif
