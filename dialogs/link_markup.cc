#include "dialogs/link_markup.h"

#include <cstddef>

namespace {

char16_t Lower(char16_t c) { return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c - u'A' + u'a') : c; }

bool IsSpace(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }

// Does markup continue at pos with word, compared without case?
bool StartsWithNoCase(WideStringView markup, std::size_t pos, WideStringView word) {
  if (markup.size() - pos < word.size()) return false;
  for (std::size_t i = 0; i < word.size(); ++i) {
    if (Lower(markup[pos + i]) != Lower(word[i])) return false;
  }
  return true;
}

struct OpeningTag {
  std::size_t end = 0;  // one past the closing '>'
  WideString id;
  WideString url;
};

// Reads "<A attributes>" at pos. Answers false if there is none.
bool ReadOpeningTag(WideStringView markup, std::size_t pos, OpeningTag* tag) {
  if (!StartsWithNoCase(markup, pos, u"<a")) return false;
  std::size_t i = pos + 2;
  if (i < markup.size() && !IsSpace(markup[i]) && markup[i] != u'>') return false;
  while (i < markup.size()) {
    while (i < markup.size() && IsSpace(markup[i])) ++i;
    if (i >= markup.size()) return false;
    if (markup[i] == u'>') {
      tag->end = i + 1;
      return true;
    }
    std::size_t nameStart = i;
    while (i < markup.size() && !IsSpace(markup[i]) && markup[i] != u'=' && markup[i] != u'>') ++i;
    WideString name;
    for (std::size_t k = nameStart; k < i; ++k) name += Lower(markup[k]);
    while (i < markup.size() && IsSpace(markup[i])) ++i;
    WideString value;
    if (i < markup.size() && markup[i] == u'=') {
      ++i;
      while (i < markup.size() && IsSpace(markup[i])) ++i;
      if (i >= markup.size()) return false;
      if (markup[i] == u'"' || markup[i] == u'\'') {
        char16_t quote = markup[i++];
        std::size_t close = markup.find(quote, i);
        if (close == WideStringView::npos) return false;
        value = WideString(markup.substr(i, close - i));
        i = close + 1;
      } else {
        std::size_t start = i;
        while (i < markup.size() && !IsSpace(markup[i]) && markup[i] != u'>') ++i;
        value = WideString(markup.substr(start, i - start));
      }
    }
    if (name == u"id") tag->id = value;
    if (name == u"href") tag->url = value;
  }
  return false;
}

std::size_t FindClosingTag(WideStringView markup, std::size_t from) {
  for (std::size_t i = from; i < markup.size(); ++i) {
    if (markup[i] == u'<' && StartsWithNoCase(markup, i, u"</a>")) return i;
  }
  return WideStringView::npos;
}

void AppendPlain(std::vector<LinkMarkupPiece>* pieces, WideStringView text) {
  if (text.empty()) return;
  if (!pieces->empty() && !pieces->back().isLink) {
    pieces->back().text += text;
  } else {
    pieces->push_back(LinkMarkupPiece{WideString(text), false, {}, {}});
  }
}

}  // namespace

std::vector<LinkMarkupPiece> ParseLinkMarkup(WideStringView markup) {
  std::vector<LinkMarkupPiece> pieces;
  std::size_t plainStart = 0;
  std::size_t i = 0;
  while (i < markup.size()) {
    OpeningTag tag;
    std::size_t close = WideStringView::npos;
    if (markup[i] == u'<' && ReadOpeningTag(markup, i, &tag) &&
        (close = FindClosingTag(markup, tag.end)) != WideStringView::npos) {
      AppendPlain(&pieces, markup.substr(plainStart, i - plainStart));
      pieces.push_back(LinkMarkupPiece{WideString(markup.substr(tag.end, close - tag.end)), true,
                                       std::move(tag.id), std::move(tag.url)});
      i = close + 4;
      plainStart = i;
      continue;
    }
    ++i;
  }
  AppendPlain(&pieces, markup.substr(plainStart));
  return pieces;
}
