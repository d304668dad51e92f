// The Mime writer against bytes written out by hand.
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

const std::regex kBoundary("--NextPart--ML[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}");
const std::string kMixedPreamble = "This is a multi-part message in MIME format.\r\n\r\n";
const std::string kAlternativePreamble = "This is a MIME formatted message with alternative content parts.\r\n\r\n";

// The boundary the document wrote into its own Content-Type header.
std::string BoundaryOf(const MimeMultiPartDocument& document) {
  const std::string value = WideToUtf8(document.Headers().at(u"Content-Type"));
  return value.substr(value.find("boundary=\"") + 10, 50);
}

MimeMessagePart* TextPart(const char16_t* text) {
  auto* part = new MimeMessagePart;
  part->SetText(text);
  return part;
}

struct KindCase {
  std::int32_t kind;
  const char* type;  // empty: a kind without a name
  std::string preamble;
};

void PrintTo(const KindCase& c, std::ostream* out) { *out << "kind " << c.kind; }

class DocumentKindTest : public testing::TestWithParam<KindCase> {};

TEST_P(DocumentKindTest, EmptyAndWithOnePart) {
  const KindCase& c = GetParam();
  MimeMultiPartDocument empty(c.kind, Mime::MimeMultiPartFlagContentLength);
  empty.SetHeader(u"X-One", u"1");
  EXPECT_EQ(empty.GetMimeText(), "Content-Length: 0\r\nX-One: 1\r\n\r\n" + c.preamble);
  EXPECT_EQ(empty.Headers().count(u"Content-Type"), 0u) << "no part, no boundary";

  MimeMultiPartDocument document(c.kind, 0);
  EXPECT_EQ(document.AddPart(TextPart(u"hello")), 0u);
  const std::string text = document.GetMimeText();
  // A kind without a name has an empty Content-Type; its boundary is in the closing delimiter.
  const std::string boundary = *c.type ? BoundaryOf(document) : text.substr(text.size() - 52, 50);
  ASSERT_TRUE(std::regex_match(boundary, kBoundary)) << boundary;
  const std::string type = *c.type ? std::string(c.type) + "; boundary=\"" + boundary + "\"" : "";
  EXPECT_EQ(text, "Content-Type: " + type + "\r\n\r\n" + c.preamble + "--" + boundary +
                      "\r\n\r\nhello\r\n--" + boundary + "--");

  EXPECT_EQ(document.GetMimeText().find(boundary), std::string::npos) << "a new boundary each time";
}

INSTANTIATE_TEST_SUITE_P(Kinds, DocumentKindTest,
                         testing::Values(KindCase{0, "multipart/mixed", kMixedPreamble},
                                         KindCase{1, "multipart/alternative", kAlternativePreamble},
                                         KindCase{2, "multipart/form-data", ""},
                                         KindCase{3, "multipart/related", kMixedPreamble},
                                         KindCase{-1, "", ""}));

TEST(MimeMessagePartTest, HeadersSortedReplacedAndRemoved) {
  MimeMessagePart part;
  EXPECT_EQ(part.GetMimeText(), "\r\n");
  part.SetHeader(u"b-second", u"2");
  part.SetHeader(u"a-first", u"old");
  part.SetHeader(u"Z-upper", u"U");
  part.SetHeader(u"a-first", u"1");
  part.SetHeader(u"gone", u"x");
  part.RemoveHeader(u"gone");
  part.RemoveHeader(u"B-SECOND");  // names compare exactly
  part.SetText(u"caf\u00e9");
  EXPECT_EQ(part.GetMimeText(), "Z-upper: U\r\na-first: 1\r\nb-second: 2\r\n\r\ncaf\xc3\xa9");
}

class MimeFilePartTest : public testing::Test {
 protected:
  WideString Write(const std::string& name, const std::string& bytes) {
    testing_support::WriteFileText(root_.Path(name), bytes);
    return Utf8ToWide(root_.Path(name));
  }
  testing_support::TestRoot root_;
};

TEST_F(MimeFilePartTest, BinaryBase64AndUnknownEncodings) {
  const std::string bytes("PK\x03\x04\0\0\r\n\xff\0end", 13);
  MimeFileAttachmentPart binary(Write("report_1.zip", bytes), u"application/x-test", Mime::MimeEncodingBinary);
  binary.SetHeader(u"X-Extra", u"yes");
  binary.SetHeader(u"Content-Type", u"again");
  EXPECT_EQ(binary.GetMimeText(),
            "Content-Type: application/x-test\r\nContent-Transfer-Encoding: binary\r\n"
            "Content-Disposition: attachment; filename=\"report_1.zip\"\r\nContent-Length: 13\r\n"
            "Content-Type: again\r\nX-Extra: yes\r\n\r\n" + bytes);

  std::string digits;
  for (int i = 0; i < 6; ++i) digits += "0123456789";
  MimeFileAttachmentPart base64(Write("digits.bin", digits), u"text/plain", Mime::MimeEncodingBase64);
  EXPECT_EQ(base64.GetMimeText(),
            "Content-Type: text/plain\r\nContent-Transfer-Encoding: base64\r\n"
            "Content-Disposition: attachment; filename=\"digits.bin\"\r\nContent-Length: 82\r\n\r\n"
            "MDEyMzQ1Njc4OTAxMjM0NTY3ODkwMTIzNDU2Nzg5MDEyMzQ1Njc4OTAxMjM0NTY3ODkwMTIz\n"
            "NDU2Nzg5\n");

  MimeFileAttachmentPart unknown(Write("full.bin", "some bytes"), u"a/b", 9);
  EXPECT_EQ(unknown.GetMimeText(),
            "Content-Type: a/b\r\nContent-Transfer-Encoding: \r\n"
            "Content-Disposition: attachment; filename=\"full.bin\"\r\nContent-Length: 0\r\n\r\n");

  EXPECT_EQ(MimeFileAttachmentPart(u"/a/b\\c.zip", u"", 0).FileName(), u"b\\c.zip");
  EXPECT_EQ(MimeFileAttachmentPart(u"plain.zip", u"", 0).FileName(), u"plain.zip");
}

TEST_F(MimeFilePartTest, MissingOrHeldFileThrowsFileNotFound) {
  const WideString missing = Utf8ToWide(root_.Path("missing.zip"));
  try {
    MimeFileAttachmentPart(missing, u"a/b", Mime::MimeEncodingBinary).GetMimeText();
    FAIL() << "no throw";
  } catch (const FE_FileNotFound& failure) {
    EXPECT_EQ(failure.Message(), u"File not found: " + missing);
  }

  // The part opens without sharing, so a reader elsewhere keeps it out.
  const WideString held = Write("held.zip", "x");
  Marlowen::File holder{Marlowen::PathBuffer(held)};
  ASSERT_TRUE(holder.Open(Marlowen::FileAccess_Read, Marlowen::FileShare_Read, Marlowen::FileAccessHint_None));
  MimeFileAttachmentPart heldPart(held, u"a/b", Mime::MimeEncodingBinary);
  EXPECT_THROW(heldPart.GetMimeText(), FE_FileNotFound);
  holder.Close();
  EXPECT_NO_THROW(heldPart.GetMimeText());
}

TEST_F(MimeFilePartTest, ContentLengthCountsFromTheFirstDelimiter) {
  MimeMultiPartDocument document(Mime::MimeMultiPartKindFormData, Mime::MimeMultiPartFlagContentLength);
  document.SetHeader(u"User-Agent", u"Agent");
  document.SetHeader(u"Host", u"h:1");
  auto* field = TextPart(u"v");
  field->SetHeader(u"Content-Disposition", u"form-data; name=\"f\"");
  document.AddPart(field);
  auto* file = new MimeFileAttachmentPart(Write("r.zip", std::string("\0\1\2", 3)), u"x/y", 0);
  EXPECT_EQ(document.AddPart(file), 1u);

  const std::string text = document.GetMimeText();
  const std::string b = BoundaryOf(document);
  const std::string counted =
      "--" + b + "\r\nContent-Disposition: form-data; name=\"f\"\r\n\r\nv\r\n"
      "--" + b + "\r\nContent-Type: x/y\r\nContent-Transfer-Encoding: binary\r\n"
      "Content-Disposition: attachment; filename=\"r.zip\"\r\nContent-Length: 3\r\n\r\n" +
      std::string("\0\1\2", 3) + "\r\n--" + b + "--";
  EXPECT_EQ(text, "Content-Length: " + std::to_string(counted.size()) +
                      "\r\nContent-Type: multipart/form-data; boundary=\"" + b +
                      "\"\r\nHost: h:1\r\nUser-Agent: Agent\r\n\r\n" + counted);
}

TEST(MimeDocumentTest, NestedDocumentWritesItsOwnHeadAndBoundary) {
  MimeMultiPartDocument outer(Mime::MimeMultiPartKindMixed, 0);
  auto* inner = new MimeMultiPartDocument(Mime::MimeMultiPartKindAlternative, 0);
  inner->AddPart(TextPart(u"in"));
  outer.AddPart(inner);

  const std::string text = outer.GetMimeText();
  const std::string o = BoundaryOf(outer);
  const std::string i = BoundaryOf(*inner);
  EXPECT_EQ(text, "Content-Type: multipart/mixed; boundary=\"" + o + "\"\r\n\r\n" + kMixedPreamble +
                      "--" + o + "\r\nContent-Type: multipart/alternative; boundary=\"" + i +
                      "\"\r\n\r\n" + kAlternativePreamble + "--" + i + "\r\n\r\nin\r\n--" + i +
                      "--\r\n--" + o + "--");
}

TEST(MimeDocumentTest, CloneRemovePartAndGetPart) {
  MimeMultiPartDocument document(Mime::MimeMultiPartKindFormData, Mime::MimeMultiPartFlagContentLength);
  document.SetHeader(u"Host", u"h");
  document.AddPart(TextPart(u"one"));

  // The clone has parts of its own and no flags.
  std::unique_ptr<Mime::MimePart> copy(document.Clone());
  auto* clone = dynamic_cast<MimeMultiPartDocument*>(copy.get());
  ASSERT_NE(clone, nullptr);
  ASSERT_EQ(clone->GetPartCount(), 1u);
  static_cast<MimeMessagePart*>(document.GetPart(0))->SetText(u"changed");
  const std::string text = clone->GetMimeText();
  const std::string b = BoundaryOf(*clone);
  EXPECT_EQ(text, "Content-Type: multipart/form-data; boundary=\"" + b +
                      "\"\r\nHost: h\r\n\r\n--" + b + "\r\n\r\none\r\n--" + b + "--");

  // A removed part is handed back, not deleted; the rest move up.
  auto* second = TextPart(u"two");
  EXPECT_EQ(document.AddPart(second), 1u);
  std::unique_ptr<Mime::MimePart> removed(document.GetPart(0));
  document.RemovePart(0);
  ASSERT_EQ(document.GetPartCount(), 1u);
  EXPECT_EQ(document.GetPart(0), second);
  EXPECT_THROW(document.GetPart(1), std::out_of_range);
  EXPECT_THROW(static_cast<const MimeMultiPartDocument&>(document).GetPart(5), std::out_of_range);
  EXPECT_THROW(document.RemovePart(1), std::out_of_range);
}

}  // namespace
