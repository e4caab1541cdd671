#include "driver/pages/page_text.h"

#include <cstddef>
#include <sstream>

namespace qx {

namespace {

class Reader {
 public:
  explicit Reader(const std::string& text) {
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines_.push_back(line);
    parts_.emplace_back();
  }

  std::vector<TextPart> read() {
    for (at_ = 0; at_ < lines_.size(); ++at_) take(lines_[at_]);
    return parts_;
  }

 private:
  using Kind = TextBlock::Kind;

  [[nodiscard]] std::size_t margin() const { return parts_.back().heading.empty() ? 0 : 2; }

  // How far beyond the part's margin a line begins; npos for a blank one.
  [[nodiscard]] std::size_t depth(std::size_t line) const {
    const std::size_t first =
        line < lines_.size() ? lines_[line].find_first_not_of(' ') : std::string::npos;
    if (first == std::string::npos) return first;
    return first > margin() ? first - margin() : 0;
  }

  void take(const std::string& line) {
    const std::size_t deep = depth(at_);
    if (deep == std::string::npos) {
      open_ = false;
    } else if (!open_ && line[0] != ' ' && line.back() == ':') {
      parts_.push_back({line.substr(0, line.size() - 1), {}});
      open_ = false;
    } else if (deep == 0) {
      at_margin(line.substr(line.find_first_not_of(' ')));
    } else if (open_ && last().kind != Kind::verbatim) {
      append(last().text, line.substr(line.find_first_not_of(' ')));
    } else {
      if (!open_) start(Kind::verbatim);
      last().text += line.substr(margin()) + '\n';
    }
  }

  void at_margin(const std::string& words) {
    const std::size_t gap = words.find("  ");
    const std::size_t below = depth(at_ + 1);
    if (gap != std::string::npos) {
      start(Kind::term).term = words.substr(0, gap);
      last().text = words.substr(words.find_first_not_of(' ', gap));
    } else if (below != std::string::npos && below > 0) {
      start(Kind::term).term = words;
    } else {
      if (!open_ || last().kind != Kind::paragraph) start(Kind::paragraph);
      append(last().text, words);
    }
  }

  static void append(std::string& text, const std::string& words) {
    text += (text.empty() ? "" : " ") + words;
  }

  TextBlock& last() { return parts_.back().blocks.back(); }

  TextBlock& start(Kind kind) {
    parts_.back().blocks.push_back({kind, {}, {}});
    open_ = true;
    return last();
  }

  std::vector<std::string> lines_;
  std::vector<TextPart> parts_;
  std::size_t at_ = 0;
  bool open_ = false;  // the last block goes on with the next line
};

}  // namespace

std::vector<TextPart> parse_text(const std::string& text) { return Reader(text).read(); }

}  // namespace qx
