#include "http/Multipart.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

std::string text_of(const TransmittedObject& file) {
    return std::string(file.data.begin(), file.data.end());
}

std::string field(const std::string& name, const std::string& data) {
    return "--b\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + data + "\r\n";
}

} // namespace

TEST(Multipart, BoundaryIsTheSecondPieceOfTheType) {
    EXPECT_EQ(multipart_boundary("multipart/form-data; boundary=----x"), "----x");
    EXPECT_EQ(multipart_boundary("multipart/form-data;BOUNDARY = x=y "), "x=y");
}

TEST(Multipart, QuotesAreAPartOfTheBoundary) {
    EXPECT_EQ(multipart_boundary("multipart/form-data; boundary=\"x\""), "\"x\"");
}

TEST(Multipart, NoBoundaryWhereNoneIsNamed) {
    for (const char* type :
         {"multipart/form-data", "multipart/form-data; charset=x; boundary=y",
          "multipart/form-data; boundary", "multipart/form-data; boundary=", "boundary=x;", ";"})
        EXPECT_EQ(multipart_boundary(type), "") << type;
    EXPECT_EQ(multipart_boundary("a; boundary=" + std::string(71, 'x')), "");
    EXPECT_EQ(multipart_boundary("a; boundary=" + std::string(70, 'x')), std::string(70, 'x'));
}

TEST(Multipart, FieldsAndFilesAreToldApart) {
    const auto form = parse_multipart("preamble\r\n" + field("user", "bob") +
                                          "--b\r\nCONTENT-DISPOSITION: form-data; name=\"f\"; "
                                          "filename=\"a.txt\"\r\nContent-Type: text/plain\r\n\r\n"
                                          "line\r\n\r\nline\r\n--b--\r\n",
                                      "b");
    ASSERT_TRUE(form);
    EXPECT_THAT(form->fields, ElementsAre(Pair("user", "bob")));
    ASSERT_EQ(form->files.size(), 1U);
    EXPECT_EQ(form->files[0].name, "f");
    EXPECT_EQ(form->files[0].filename, "a.txt");
    EXPECT_EQ(form->files[0].type, "text/plain");
    EXPECT_EQ(text_of(form->files[0]), "line\r\n\r\nline");
}

TEST(Multipart, DataEndsBeforeTheLineEndOfTheDelimiter) {
    EXPECT_THAT(parse_multipart(field("a", "") + field("c", "x\r\n") + "--b--", "b")->fields,
                ElementsAre(Pair("a", ""), Pair("c", "x\r\n")));
    EXPECT_THAT(parse_multipart("--b\nContent-Disposition: x; name=a\n\nv\n--b--\n", "b")->fields,
                ElementsAre(Pair("a", "v")));
}

TEST(Multipart, PartWithoutDataMayEndRightBehindItsHead) {
    EXPECT_THAT(parse_multipart("--b\r\nContent-Disposition: x; name=a\r\n\r\n--b--", "b")->fields,
                ElementsAre(Pair("a", "")));
}

TEST(Multipart, PartNeedsANextDelimiter) {
    EXPECT_THAT(parse_multipart(field("a", "1") + field("c", "2"), "b")->fields,
                ElementsAre(Pair("a", "1")));
}

TEST(Multipart, NothingIsReadBehindTheLastDelimiter) {
    EXPECT_THAT(
        parse_multipart(field("a", "1") + "--b--\r\n" + field("c", "2") + "--b--", "b")->fields,
        ElementsAre(Pair("a", "1")));
}

TEST(Multipart, FileNameWithoutATypeIsAField) {
    const auto form =
        parse_multipart("--b\r\nContent-Disposition: x; name=a; filename=f\r\n\r\nv\r\n--b--", "b");
    EXPECT_THAT(form->fields, ElementsAre(Pair("a", "v")));
    EXPECT_THAT(form->files, IsEmpty());
}

TEST(Multipart, FieldOfAnotherTypeThanTextIsDropped) {
    const auto part = [](const std::string& type) {
        return "--b\r\nContent-Disposition: x; name=a\r\nContent-Type: " + type +
               "\r\n\r\nv\r\n--b--";
    };
    EXPECT_THAT(parse_multipart(part("image/png"), "b")->fields, IsEmpty());
    EXPECT_THAT(parse_multipart(part("text/plain; charset=x"), "b")->fields,
                ElementsAre(Pair("a", "v")));
}

TEST(Multipart, PartWithoutANameIsDropped) {
    const auto form = parse_multipart("--b\r\nX: y\r\nnonsense\r\n:\r\n\r\nv\r\n--b--", "b");
    EXPECT_THAT(form->fields, IsEmpty());
    EXPECT_THAT(form->files, IsEmpty());
}

TEST(Multipart, BodyWithoutTheDelimiterIsNoForm) {
    EXPECT_FALSE(parse_multipart("-b\r\n\r\n", "b"));
    EXPECT_FALSE(parse_multipart("", "b"));
}

TEST(Multipart, BodyThatIsOnlyTheDelimiterIsEmpty) {
    EXPECT_THAT(parse_multipart("--b", "b")->fields, IsEmpty());
    EXPECT_THAT(parse_multipart("--b--b--b", "b")->fields, IsEmpty());
}

TEST(Multipart, PartsBeyondTheMostAreDropped) {
    std::string body;
    for (std::size_t i = 0; i <= MOST_FORM_PARTS; ++i)
        body += field(std::to_string(i), "");
    const auto form = parse_multipart(body + "--b--", "b");
    EXPECT_EQ(form->fields.size(), MOST_FORM_PARTS);
    EXPECT_FALSE(form->fields.contains(std::to_string(MOST_FORM_PARTS)));
}
