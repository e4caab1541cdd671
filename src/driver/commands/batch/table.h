// The results of a batch, a row for each data set, as tab-separated text and as JSON.
#pragma once

#include "core/output_file.h"
#include "driver/commands/batch/record.h"

namespace qx {

// What the tables hold of a data set. `doubt`: why its record is not to be relied on, or empty.
Json table_row(const DataSet& set, const Json& record, const std::string& doubt);

// Rows go to the files as they come, and the files into place when all rows are there.
class ResultsTable {
 public:
  // Begins `stem`.tsv and `stem`.json; throws CommandError, as the others do.
  explicit ResultsTable(const std::filesystem::path& stem);
  void add(const Json& row);
  void finish();

 private:
  struct File {
    std::string path;
    OutputFile file;
    void open();
    void write(const std::string& text);
    void commit();
  };
  File tsv_, json_;
  bool empty_ = true;
};

}  // namespace qx
