/// How long the client waits for servers that say nothing: until a test says that the time is over.
/// A program that links it has its own calls of poll(2) sent here by the linker.
#ifndef TESTS_MATRIX_PATIENCE_H
#define TESTS_MATRIX_PATIENCE_H

namespace tests {

/// The waits for an answer and for its next piece; every other call of poll goes to the system. Any
/// thread.
class Patience {
 public:
  /// One exchange that gets no answer: its waits, the one under way included, end as if their time
  /// were over.
  static void End();
};

}  // namespace tests

#endif
