// The Mime writer against bytes written out by hand: documents of every
// kind, header order, file parts in both encodings, nesting, clones, and the
// one thrown failure.
#include <cstdint>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "shell/failures.h"
#include "store/file.h"
#include "test_root.h"
#include "upload/mime/mime_file_attachment_part.h"
#include "upload/mime/mime_message_part.h"
#include "upload/mime/mime_multi_part_document.h"

namespace {

using Mime::MimeFileAttachmentPart;
using Mime::MimeMessagePart;
using Mime::MimeMultiPartDocument;
using testing_support::TestRoot;

constexpr char kBoundaryPattern[] =
    "--NextPart--ML[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}";

// The boundary the document wrote into its own Content-Type header.
std::string BoundaryOf(const MimeMultiPartDocument& document) {
  const auto it = document.Headers().find(u"Content-Type");
  if (it == document.Headers().end()) return {};
  const std::string value = WideToUtf8(it->second);
  const std::size_t start = value.find("boundary=\"");
  if (start == std::string::npos || value.back() != '"') return {};
  return value.substr(start + 10, value.size() - start - 11);
}

WideString Wide(const std::string& text) { return Utf8ToWide(text); }

struct EmptyKindCase {
  std::int32_t kind;
  const char* preamble;
};

void PrintTo(const EmptyKindCase& c, std::ostream* out) { *out << "kind " << c.kind; }

class EmptyDocumentTest : public testing::TestWithParam<EmptyKindCase> {};

TEST_P(EmptyDocumentTest, WritesHeadAndPreambleOnly) {
  MimeMultiPartDocument document(GetParam().kind, Mime::MimeMultiPartFlagContentLength);
  document.SetHeader(u"X-One", u"1");
  const std::string expected =
      std::string("Content-Length: 0\r\nX-One: 1\r\n\r\n") + GetParam().preamble;
  EXPECT_EQ(document.GetMimeText(), expected);
  // No part, no boundary in the head.
  EXPECT_EQ(document.Headers().count(u"Content-Type"), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, EmptyDocumentTest,
    testing::Values(
        EmptyKindCase{0, "This is a multi-part message in MIME format.\r\n\r\n"},
        EmptyKindCase{1, "This is a MIME formatted message with alternative content parts.\r\n\r\n"},
        EmptyKindCase{2, ""},
        EmptyKindCase{3, "This is a multi-part message in MIME format.\r\n\r\n"},
        EmptyKindCase{7, ""}));

struct KindTypeCase {
  std::int32_t kind;
  const char* typeLead;  // null: an unknown kind, empty value
  const char* preamble;
};

void PrintTo(const KindTypeCase& c, std::ostream* out) { *out << "kind " << c.kind; }

class DocumentKindTest : public testing::TestWithParam<KindTypeCase> {};

TEST_P(DocumentKindTest, OnePartBetweenDelimiters) {
  MimeMultiPartDocument document(GetParam().kind, 0);
  auto* part = new MimeMessagePart;
  part->SetText(u"hello");
  EXPECT_EQ(document.AddPart(part), 0u);

  const std::string text = document.GetMimeText();
  const WideString contentType = document.Headers().at(u"Content-Type");
  std::string boundary;
  std::string typeLine;
  if (GetParam().typeLead) {
    boundary = BoundaryOf(document);
    ASSERT_TRUE(std::regex_match(boundary, std::regex(kBoundaryPattern))) << boundary;
    typeLine = std::string(GetParam().typeLead) + boundary + "\"";
  } else {
    EXPECT_TRUE(contentType.empty());
    boundary = text.substr(text.size() - 52, 50);  // from the closing delimiter
  }
  ASSERT_EQ(boundary.size(), 50u);
  const std::string expected = "Content-Type: " + typeLine + "\r\n\r\n" + GetParam().preamble +
                               "--" + boundary + "\r\n\r\nhello\r\n--" + boundary + "--";
  EXPECT_EQ(text, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, DocumentKindTest,
    testing::Values(
        KindTypeCase{0, "multipart/mixed; boundary=\"",
                     "This is a multi-part message in MIME format.\r\n\r\n"},
        KindTypeCase{1, "multipart/alternative; boundary=\"",
                     "This is a MIME formatted message with alternative content parts.\r\n\r\n"},
        KindTypeCase{2, "multipart/form-data; boundary=\"", ""},
        KindTypeCase{3, "multipart/related; boundary=\"",
                     "This is a multi-part message in MIME format.\r\n\r\n"},
        KindTypeCase{-1, nullptr, ""}));

TEST(MimeMessagePartTest, HeadersSortedReplacedAndRemoved) {
  MimeMessagePart part;
  EXPECT_EQ(part.GetMimeText(), "\r\n");
  part.SetHeader(u"b-second", u"2");
  part.SetHeader(u"a-first", u"old");
  part.SetHeader(u"Z-upper", u"U");
  part.SetHeader(u"a-first", u"1");
  part.SetHeader(u"gone", u"x");
  part.RemoveHeader(u"gone");
  part.RemoveHeader(u"never-set");
  part.RemoveHeader(u"B-SECOND");  // names compare exactly
  part.SetText(u"caf\u00e9");
  EXPECT_EQ(part.GetMimeText(), "Z-upper: U\r\na-first: 1\r\nb-second: 2\r\n\r\ncaf\xc3\xa9");
}

class MimeFilePartTest : public testing::Test {
 protected:
  std::string Write(const std::string& name, const std::string& bytes) {
    const std::string path = root_.Path(name);
    testing_support::WriteFileText(path, bytes);
    return path;
  }
  TestRoot root_;
};

TEST_F(MimeFilePartTest, BinaryBodyKeepsEveryByteAndRepeatsSetHeaders) {
  const std::string bytes("PK\x03\x04\0\0\r\n\xff\0end", 13);
  const std::string path = Write("report_1.zip", bytes);
  MimeFileAttachmentPart part(Wide(path), u"application/x-test", Mime::MimeEncodingBinary);
  part.SetHeader(u"X-Extra", u"yes");
  part.SetHeader(u"Content-Type", u"again");
  const std::string expected =
      "Content-Type: application/x-test\r\n"
      "Content-Transfer-Encoding: binary\r\n"
      "Content-Disposition: attachment; filename=\"report_1.zip\"\r\n"
      "Content-Length: 13\r\n"
      "Content-Type: again\r\n"
      "X-Extra: yes\r\n"
      "\r\n" + bytes;
  EXPECT_EQ(part.GetMimeText(), expected);
  EXPECT_EQ(part.GetMimeText(), expected) << "the file is read again on each call";
}

TEST_F(MimeFilePartTest, Base64LinesOf72EndedByBareLineFeeds) {
  std::string digits;
  for (int i = 0; i < 6; ++i) digits += "0123456789";
  const std::string path = Write("digits.bin", digits);
  MimeFileAttachmentPart part(Wide(path), u"text/plain", Mime::MimeEncodingBase64);
  const std::string body =
      "MDEyMzQ1Njc4OTAxMjM0NTY3ODkwMTIzNDU2Nzg5MDEyMzQ1Njc4OTAxMjM0NTY3ODkwMTIz\n"
      "NDU2Nzg5\n";
  EXPECT_EQ(part.GetMimeText(),
            "Content-Type: text/plain\r\n"
            "Content-Transfer-Encoding: base64\r\n"
            "Content-Disposition: attachment; filename=\"digits.bin\"\r\n"
            "Content-Length: 82\r\n"
            "\r\n" + body);
}

TEST_F(MimeFilePartTest, EmptyFilesAndUnknownEncoding) {
  const std::string empty = Write("empty.zip", "");
  MimeFileAttachmentPart binary(Wide(empty), u"a/b", Mime::MimeEncodingBinary);
  EXPECT_EQ(binary.GetMimeText(),
            "Content-Type: a/b\r\nContent-Transfer-Encoding: binary\r\n"
            "Content-Disposition: attachment; filename=\"empty.zip\"\r\n"
            "Content-Length: 0\r\n\r\n");

  const std::string full = Write("full.bin", "some bytes");
  MimeFileAttachmentPart unknown(Wide(full), u"a/b", 9);
  EXPECT_EQ(unknown.GetMimeText(),
            "Content-Type: a/b\r\nContent-Transfer-Encoding: \r\n"
            "Content-Disposition: attachment; filename=\"full.bin\"\r\n"
            "Content-Length: 0\r\n\r\n");
}

TEST_F(MimeFilePartTest, FileNameIsTheLastPathElement) {
  EXPECT_EQ(MimeFileAttachmentPart(u"/a/b\\c.zip", u"", 0).FileName(), u"b\\c.zip");
  EXPECT_EQ(MimeFileAttachmentPart(u"plain.zip", u"", 0).FileName(), u"plain.zip");
  EXPECT_EQ(MimeFileAttachmentPart(u"/folder/", u"", 0).FileName(), u"");
}

TEST_F(MimeFilePartTest, MissingOrHeldFileThrowsFileNotFound) {
  const WideString missing = Wide(root_.Path("missing.zip"));
  MimeFileAttachmentPart part(missing, u"a/b", Mime::MimeEncodingBinary);
  try {
    part.GetMimeText();
    FAIL() << "no throw";
  } catch (const FE_FileNotFound& failure) {
    EXPECT_EQ(failure.FileName(), missing);
    EXPECT_EQ(failure.Message(), u"File not found: " + missing);
  }

  // The part opens without sharing, so a reader elsewhere keeps it out.
  const std::string held = Write("held.zip", "x");
  Marlowen::File holder{Marlowen::PathBuffer(Wide(held))};
  ASSERT_TRUE(holder.Open(Marlowen::FileAccess_Read, Marlowen::FileShare_Read,
                          Marlowen::FileAccessHint_None));
  MimeFileAttachmentPart heldPart(Wide(held), u"a/b", Mime::MimeEncodingBinary);
  EXPECT_THROW(heldPart.GetMimeText(), FE_FileNotFound);
  holder.Close();
  EXPECT_NO_THROW(heldPart.GetMimeText());
}

TEST_F(MimeFilePartTest, FormDocumentWithContentLengthCountsFromFirstDelimiter) {
  const std::string zip = Write("r.zip", std::string("\0\1\2", 3));
  MimeMultiPartDocument document(Mime::MimeMultiPartKindFormData,
                                 Mime::MimeMultiPartFlagContentLength);
  document.SetHeader(u"User-Agent", u"Agent");
  document.SetHeader(u"Host", u"h:1");
  auto* field = new MimeMessagePart;
  field->SetHeader(u"Content-Disposition", u"form-data; name=\"f\"");
  field->SetText(u"v");
  document.AddPart(field);
  EXPECT_EQ(document.AddPart(new MimeFileAttachmentPart(Wide(zip), u"x/y", 0)), 1u);

  const std::string text = document.GetMimeText();
  const std::string b = BoundaryOf(document);
  ASSERT_EQ(b.size(), 50u);
  const std::string counted =
      "--" + b + "\r\nContent-Disposition: form-data; name=\"f\"\r\n\r\nv\r\n"
      "--" + b + "\r\nContent-Type: x/y\r\nContent-Transfer-Encoding: binary\r\n"
      "Content-Disposition: attachment; filename=\"r.zip\"\r\nContent-Length: 3\r\n\r\n" +
      std::string("\0\1\2", 3) + "\r\n--" + b + "--";
  const std::string expected =
      "Content-Length: " + std::to_string(counted.size()) + "\r\n" +
      "Content-Type: multipart/form-data; boundary=\"" + b + "\"\r\nHost: h:1\r\n"
      "User-Agent: Agent\r\n\r\n" + counted;
  EXPECT_EQ(text, expected);
}

TEST(MimeDocumentTest, EachRenderingMakesANewBoundary) {
  MimeMultiPartDocument document(0, 0);
  document.AddPart(new MimeMessagePart);
  const std::string first = document.GetMimeText();
  const std::string firstBoundary = BoundaryOf(document);
  const std::string second = document.GetMimeText();
  const std::string secondBoundary = BoundaryOf(document);
  EXPECT_NE(firstBoundary, secondBoundary);
  EXPECT_NE(first, second);
  EXPECT_NE(second.find("--" + secondBoundary + "--"), std::string::npos);
  EXPECT_EQ(second.find(firstBoundary), std::string::npos);
}

TEST(MimeDocumentTest, NestedDocumentWritesItsOwnHeadAndBoundary) {
  MimeMultiPartDocument outer(Mime::MimeMultiPartKindMixed, 0);
  auto* inner = new MimeMultiPartDocument(Mime::MimeMultiPartKindAlternative, 0);
  auto* leaf = new MimeMessagePart;
  leaf->SetText(u"in");
  inner->AddPart(leaf);
  outer.AddPart(inner);

  const std::string text = outer.GetMimeText();
  const std::string o = BoundaryOf(outer);
  const std::string i = BoundaryOf(*inner);
  ASSERT_NE(o, i);
  EXPECT_EQ(text, "Content-Type: multipart/mixed; boundary=\"" + o +
                      "\"\r\n\r\nThis is a multi-part message in MIME format.\r\n\r\n--" + o +
                      "\r\nContent-Type: multipart/alternative; boundary=\"" + i +
                      "\"\r\n\r\nThis is a MIME formatted message with alternative content "
                      "parts.\r\n\r\n--" + i + "\r\n\r\nin\r\n--" + i + "--\r\n--" + o + "--");
}

TEST(MimeDocumentTest, CloneCopiesPartsButNotFlags) {
  MimeMultiPartDocument document(Mime::MimeMultiPartKindFormData,
                                 Mime::MimeMultiPartFlagContentLength);
  document.SetHeader(u"Host", u"h");
  auto* part = new MimeMessagePart;
  part->SetText(u"one");
  document.AddPart(part);

  std::unique_ptr<Mime::MimePart> copy(document.Clone());
  auto* clone = dynamic_cast<MimeMultiPartDocument*>(copy.get());
  ASSERT_NE(clone, nullptr);
  ASSERT_EQ(clone->GetPartCount(), 1u);
  EXPECT_NE(clone->GetPart(0), document.GetPart(0));
  // Changing the original's part leaves the clone's alone.
  static_cast<MimeMessagePart*>(document.GetPart(0))->SetText(u"changed");

  const std::string text = clone->GetMimeText();
  const std::string b = BoundaryOf(*clone);
  EXPECT_EQ(text, "Content-Type: multipart/form-data; boundary=\"" + b +
                      "\"\r\nHost: h\r\n\r\n--" + b + "\r\n\r\none\r\n--" + b + "--");
}

TEST(MimeDocumentTest, RemovePartHandsItBackAndMovesTheRestUp) {
  MimeMultiPartDocument document(0, 0);
  auto* first = new MimeMessagePart;
  auto* second = new MimeMessagePart;
  document.AddPart(first);
  document.AddPart(second);
  document.RemovePart(0);
  std::unique_ptr<MimeMessagePart> owned(first);  // not deleted by the document
  ASSERT_EQ(document.GetPartCount(), 1u);
  EXPECT_EQ(document.GetPart(0), second);
  EXPECT_THROW(document.GetPart(1), std::out_of_range);
  const MimeMultiPartDocument& constant = document;
  EXPECT_THROW(constant.GetPart(5), std::out_of_range);
  EXPECT_THROW(document.RemovePart(1), std::out_of_range);
}

}  // namespace
