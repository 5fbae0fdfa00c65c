#include "config/Config.h"
#include "core/Clock.h"
#include "http/Request.h"
#include "net/Socket.h"
#include "support/LogLines.h"
#include "support/LoopbackPair.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string FORM_TYPE = "Content-Type: application/x-www-form-urlencoded\r\n";
const std::string MULTIPART_TYPE = "Content-Type: multipart/form-data; boundary=b\r\n";

struct Post {
    LoopbackPair pair;
    Request request{pair.server};

    explicit Post(const std::string& fields) {
        pair.Send("POST /form HTTP/1.1\r\nHost: x\r\n" + fields + "\r\n");
        wait_for_bytes();
        head_result = request.ReadRequest();
    }
    // Sends a piece of the body and reads it.
    int read(const std::string& bytes) {
        pair.Send(bytes);
        wait_for_bytes();
        return request.ReadForm();
    }
    void wait_for_bytes() const {
        while (pair.server->CanRecv() == 0) {
        }
    }
    std::string body() const {
        return std::string(request.PostData().begin(), request.PostData().end());
    }

    int head_result = 0;
};

std::string length_of(const std::string& body) {
    return "Content-Length: " + std::to_string(body.size()) + "\r\n";
}

} // namespace

TEST(RequestForm, FieldsOfAFormAreReadWithTheBody) {
    Post post(FORM_TYPE + "Content-Length: 12\r\n");
    EXPECT_GT(post.head_result, 0);
    EXPECT_FALSE(post.request.FormComplete());
    EXPECT_EQ(post.read("b=1&a=x+y&c="), 12);
    EXPECT_TRUE(post.request.FormComplete());
    EXPECT_THAT(post.request.GetAllFormFields(), ElementsAre("a", "b", "c"));
    EXPECT_EQ(post.request.GetFormField("a"), "x y");
    EXPECT_EQ(post.request.GetFormField("c"), "");
    EXPECT_EQ(post.body(), "b=1&a=x+y&c=");
    EXPECT_EQ(post.request.ReadForm(), 0);
}

TEST(RequestForm, BodyMayArriveInPiecesAndNeverWaits) {
    Post post(FORM_TYPE + "Content-Length: 3\r\n");
    EXPECT_EQ(post.request.ReadForm(), IO_AGAIN);
    EXPECT_EQ(post.read("a"), 1);
    EXPECT_EQ(post.request.ReadRequest(), IO_AGAIN);
    EXPECT_EQ(post.read("="), 1);
    EXPECT_FALSE(post.request.FormComplete());
    EXPECT_EQ(post.read("b"), 1);
    EXPECT_EQ(post.request.GetFormField("a"), "b");
}

TEST(RequestForm, BytesBehindTheBodyStayInTheSocket) {
    Post post(FORM_TYPE + "Content-Length: 3\r\n");
    EXPECT_EQ(post.read("a=bGET /"), 3);
    char rest[16];
    EXPECT_EQ(post.pair.server->Recv(rest, 16, 0, 0), 5);
}

TEST(RequestForm, NoLengthMeansNoBody) {
    for (const char* fields :
         {"", "Content-Length: -1\r\n", "Content-Length: 0\r\n", "Content-Length: abc\r\n"}) {
        Post post(FORM_TYPE + fields);
        EXPECT_GT(post.head_result, 0);
        EXPECT_TRUE(post.request.FormComplete()) << fields;
        EXPECT_THAT(post.request.GetAllFormFields(), IsEmpty());
    }
}

TEST(RequestForm, OtherMethodsHaveNoForm) {
    LoopbackPair pair;
    Request request(pair.server);
    pair.Send("GET / HTTP/1.0\r\nContent-Length: 3\r\n\r\na=b");
    while (request.ReadRequest() == IO_AGAIN) {
    }
    EXPECT_TRUE(request.FormComplete());
    EXPECT_EQ(request.ReadForm(), 0);
    EXPECT_EQ(request.receive_form_data(), 0);
}

TEST(RequestForm, UploadOfExactlyTheLimitPasses) {
    Config::Get("UploadLimit", true)->SetValue(10);
    Post post("Content-Length: 10\r\n");
    EXPECT_EQ(post.read("0123456789"), 10);
    EXPECT_TRUE(post.request.FormComplete());
    EXPECT_EQ(post.request.GetErrorCode(), 0);
}

TEST(RequestForm, UploadAboveTheLimitIsRefused) {
    LogLines log;
    Config::Get("UploadLimit", true)->SetValue(2048);
    for (const char* length : {"2049", "20482048", "99999999999999999999999999"}) {
        Post post("Content-Length: " + std::string(length) + "\r\n");
        EXPECT_EQ(post.head_result, IO_FAILED);
        EXPECT_EQ(post.request.GetErrorCode(), 507);
        EXPECT_FALSE(post.request.KeepAlive());
    }
    EXPECT_TRUE(log.Wait("<127.0.0.1> Recv Failed: Client Trying to send more than 2.00 KiB of "
                         "data in their request payload"));
}

TEST(RequestForm, RepeatedLengthsRunTogether) {
    Config::Get("UploadLimit", true)->SetValue(54);
    EXPECT_EQ(Post("Content-Length: 5\r\nContent-Length: 5\r\n").head_result, IO_FAILED);
}

TEST(RequestForm, BodyOfAnotherTypeIsOnlyKept) {
    Post post("Content-Type: application/x-www-form-urlencoded; charset=UTF-8\r\n"
              "Content-Length: 3\r\n");
    EXPECT_EQ(post.read("a=b"), 3);
    EXPECT_TRUE(post.request.FormComplete());
    EXPECT_THAT(post.request.GetAllFormFields(), IsEmpty());
    EXPECT_EQ(post.body(), "a=b");
}

TEST(RequestForm, LargeBodyGrowsWithWhatArrives) {
    const std::string body = "a=" + std::string(300000, 'x');
    Post post(FORM_TYPE + length_of(body));
    EXPECT_LT(post.request.PostData().capacity(), 65536U);
    post.pair.Send(body);
    while (!post.request.FormComplete())
        ASSERT_NE(post.request.ReadForm(), IO_FAILED);
    EXPECT_EQ(post.request.GetFormField("a").size(), 300000U);
}

TEST(RequestForm, ThirtySilentSecondsEndIt) {
    Clock::Hold(1000);
    Post post("Content-Length: 3\r\n");
    EXPECT_EQ(post.request.ReadForm(), IO_AGAIN);
    Clock::Advance(29);
    EXPECT_EQ(post.request.ReadForm(), IO_AGAIN);
    Clock::Advance(1);
    EXPECT_EQ(post.request.ReadForm(), IO_FAILED);
    EXPECT_EQ(post.request.GetErrorCode(), 0);
}

TEST(RequestForm, EveryByteOfTheBodyStartsTheThirtySecondsAgain) {
    Clock::Hold(1000);
    Post post("Content-Length: 3\r\n");
    Clock::Advance(29);
    EXPECT_EQ(post.read("a"), 1);
    Clock::Advance(29);
    EXPECT_EQ(post.request.ReadForm(), IO_AGAIN);
    Clock::Advance(1);
    EXPECT_EQ(post.request.ReadRequest(), IO_FAILED);
}

TEST(RequestForm, FilesAndFieldsOfAMultipartBody) {
    LogLines log;
    const std::string body =
        "--b\r\nContent-Disposition: form-data; name=\"t\"\r\n\r\ntext\r\n"
        "--b\r\nContent-Disposition: form-data; name=\"f\"; filename=\"a.bin\"\r\n"
        "Content-Type: audio/mpeg\r\n\r\n\1\2\r\n--b--\r\n";
    Post post(MULTIPART_TYPE + length_of(body));
    post.read(body);
    EXPECT_TRUE(post.request.FormComplete());
    EXPECT_EQ(post.request.GetFormField("t"), "text");

    std::vector<Request::TransmittedObject> files = post.request.GetAllMultipartForm();
    ASSERT_EQ(files.size(), 1U);
    EXPECT_EQ(files[0].name, "f");
    EXPECT_EQ(files[0].filename, "a.bin");
    EXPECT_EQ(files[0].type, "audio/mpeg");
    EXPECT_THAT(files[0].data, ElementsAre('\1', '\2'));
    files.clear(); // a copy of the caller's
    EXPECT_EQ(post.request.GetAllMultipartForm().size(), 1U);
    EXPECT_TRUE(log.Wait("<127.0.0.1> Received File: a.bin of type audio/mpeg (f)"));
}

TEST(RequestForm, MultipartWithoutABoundaryIsLogged) {
    LogLines log;
    Post post("Content-Type: multipart/form-data\r\nContent-Length: 3\r\n");
    post.read("--b");
    EXPECT_TRUE(post.request.FormComplete());
    EXPECT_TRUE(log.Wait("<127.0.0.1> Multipart form data submitted with no boundary defined."));
}

TEST(RequestForm, MultipartWithoutItsBoundaryInTheBodyIsLogged) {
    LogLines log;
    Post post(MULTIPART_TYPE + "Content-Length: 3\r\n");
    post.read("-b-");
    EXPECT_TRUE(post.request.FormComplete());
    EXPECT_TRUE(log.Wait("<127.0.0.1> Multipart form data submitted boundary position not found."));
}
