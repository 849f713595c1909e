#include "devserver/ServerCertificate.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "testing/TemporaryDirectory.h"

namespace velmor::devserver {
namespace {

std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 0777;
}

class ServerCertificateTest : public ::testing::Test {
 protected:
  CertificateFiles prepare() {
    std::string error;
    std::optional<CertificateFiles> files = ServerCertificate::prepare(directory_, &error);
    EXPECT_TRUE(files) << error;
    return files.value_or(CertificateFiles{});
  }

  test::TemporaryDirectory temporary_;
  std::string directory_ = temporary_.pathOf("config/velmor-auth/devserver");
};

TEST_F(ServerCertificateTest, CreatesTheFilesWithPrivateModes) {
  const CertificateFiles files = prepare();
  EXPECT_EQ(files.caCertificate, directory_ + "/ca.pem");
  EXPECT_EQ(files.certificate, directory_ + "/server.pem");
  const struct {
    std::string path;
    mode_t mode;
  } expected[] = {
      {temporary_.pathOf("config"), 0700}, {directory_, 0700},        {files.caCertificate, 0644},
      {files.caPrivateKey, 0600},          {files.certificate, 0644}, {files.privateKey, 0600},
  };
  for (const auto& e : expected) {
    SCOPED_TRACE(e.path);
    EXPECT_EQ(modeOf(e.path), e.mode);
  }
  EXPECT_EQ(contentsOf(files.caCertificate).rfind("-----BEGIN CERTIFICATE-----", 0), 0u);
  EXPECT_FALSE(std::filesystem::exists(files.certificate + ".tmp"));
}

TEST_F(ServerCertificateTest, ReusesFilesThatAreStillGood) {
  const CertificateFiles first = prepare();
  const std::string ca = contentsOf(first.caCertificate);
  const std::string server = contentsOf(first.certificate);
  const CertificateFiles second = prepare();
  EXPECT_EQ(contentsOf(second.caCertificate), ca);
  EXPECT_EQ(contentsOf(second.certificate), server);
}

TEST_F(ServerCertificateTest, ReplacesADamagedServerCertificateUnderTheSameAuthority) {
  const CertificateFiles first = prepare();
  const std::string ca = contentsOf(first.caCertificate);
  const std::string server = contentsOf(first.certificate);
  for (const std::string& damaged : {first.certificate, first.privateKey}) {
    SCOPED_TRACE(damaged);
    std::ofstream(damaged, std::ios::trunc) << "garbage";
    const CertificateFiles again = prepare();
    EXPECT_EQ(contentsOf(again.caCertificate), ca);
    EXPECT_NE(contentsOf(again.certificate), server);
  }
}

TEST_F(ServerCertificateTest, AnotherAuthorityMeansANewServerCertificate) {
  const CertificateFiles first = prepare();
  const std::string server = contentsOf(first.certificate);
  std::filesystem::remove(first.caPrivateKey);
  const CertificateFiles again = prepare();
  EXPECT_NE(contentsOf(again.certificate), server);
  EXPECT_TRUE(std::filesystem::exists(again.caPrivateKey));
}

TEST_F(ServerCertificateTest, ReportsADirectoryItCannotMake) {
  const std::string file = temporary_.writeFile("plain-file", "x");
  std::string error;
  EXPECT_FALSE(ServerCertificate::prepare(file + "/sub", &error));
  EXPECT_NE(error.find(file), std::string::npos) << error;
  EXPECT_FALSE(ServerCertificate::prepare("", &error));
}

}  // namespace
}  // namespace velmor::devserver
