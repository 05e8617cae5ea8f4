#include <sys/stat.h>

#include "crypto_support.h"

namespace tolven::test {
namespace {

// The helper for people, run as they run it, in a SECUDIR of its own.
class TolvenPse : public ::testing::Test {
 protected:
  // The exit code; what was printed, errors included, goes to m_output.
  int Run(const std::string& arguments) {
    m_output.clear();
    return m_home.RunStatus(
        "SECUDIR='" + m_home.File("sec") + "' sh '" TOLVEN_PSE_SCRIPT "' " + arguments + " 2>&1 </dev/null",
        &m_output);
  }
  std::string Pse(const std::string& name) const { return m_home.File("sec/" + name + ".pse"); }
  static int SignRc(const std::string& pse, const char* password) {
    int rc = -1;
    Sign(kContent, pse, password, "SHA256", &rc);
    return rc;
  }

  Scratch m_home;
  std::string m_output;
};

TEST_F(TolvenPse, NewKeysSignAndVerify) {
  m_home.Write("pw", "a secret with blanks \n");
  struct Row {
    const char* options;
    const char* password;
  };
  int n = 0;
  for (const Row& row : {Row{"-passfile pw", "a secret with blanks "}, Row{"-nopass", nullptr},
                         Row{"-type rsa -nopass -subject '/CN=Jane Doe/O=Example'", nullptr}}) {
    const std::string name = "key" + std::to_string(++n);
    ASSERT_EQ(Run("new " + name + " " + row.options), 0) << m_output;
    struct stat status {};
    ASSERT_EQ(stat(Pse(name).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    const std::string signature = Sign(kContent, Pse(name), row.password);
    const Verdict verdict = Verify(kContent, signature, Pse(name));
    EXPECT_EQ(Name(verdict.Reason()), "DKV_OK");
    if (row.password != nullptr) {
      EXPECT_EQ(Name(SignRc(Pse(name), nullptr)), "DKV_ERR_PASSWORD");
    }
    ASSERT_EQ(Run("show " + name), 0);
    EXPECT_NE(m_output.find("Digital Signature"), std::string::npos);
    EXPECT_NE(m_output.find("Code Signing"), std::string::npos);
  }
  EXPECT_EQ(Verify(kContent, Sign(kContent, Pse("key3")), Pse("key3")).subject, "O=Example,CN=Jane Doe");
}

TEST_F(TolvenPse, RefusesToOverwrite) {
  ASSERT_EQ(Run("new key -nopass"), 0) << m_output;
  const std::string before = m_home.Read("sec/key.pse");
  EXPECT_NE(Run("new key -nopass"), 0);
  EXPECT_NE(Run("request key request.csr -nopass"), 0);
  EXPECT_NE(Run("trust key sec/key.pse"), 0);
  EXPECT_EQ(m_home.Read("sec/key.pse"), before);
}

TEST_F(TolvenPse, TrustFiles) {
  ASSERT_EQ(Run("new one -nopass"), 0) << m_output;
  ASSERT_EQ(Run("new two -nopass"), 0) << m_output;
  ASSERT_EQ(Run("trust QELverify one '" + Pki().File("root.crt") + "'"), 0) << m_output;
  EXPECT_EQ(m_home.Read("sec/QELverify.pse").find("PRIVATE KEY"), std::string::npos);
  EXPECT_EQ(Verify(kContent, Sign(kContent, Pse("one")), Pse("QELverify")).rc, DKV_OK);
  EXPECT_EQ(Verify(kContent, Sign(kContent, "signer.pse"), Pse("QELverify")).rc, DKV_OK);
  EXPECT_EQ(Verify(kContent, Sign(kContent, Pse("two")), Pse("QELverify")).result, DKV_ERR_WRONG_SIGNER);
  EXPECT_NE(Run("trust other missing.crt"), 0);
}

TEST_F(TolvenPse, RequestAndAnswer) {
  m_home.Write("pw", "secret\n");
  ASSERT_EQ(Run("request mine request.csr -passfile pw"), 0) << m_output;
  EXPECT_EQ(Name(SignRc(Pse("mine"), "secret")), "DKV_ERR_PSE_NO_CERT");
  Pki().Run("openssl ca -config pki.cnf -batch -notext -extensions signer -in '" +
            m_home.File("request.csr") + "' -out '" + m_home.File("answer.crt") + "' 2>&1");
  EXPECT_NE(Run("import mine '" + Pki().File("signer.crt") + "' -passfile pw"), 0);  // somebody else's
  EXPECT_EQ(Name(SignRc(Pse("mine"), "secret")), "DKV_ERR_PSE_NO_CERT");
  ASSERT_EQ(Run("import mine answer.crt '" + Pki().File("inter.crt") + "' -passfile pw"), 0) << m_output;
  EXPECT_EQ(Name(Verify(kContent, Sign(kContent, Pse("mine"), "secret"), "trust.pse").Reason()), "DKV_OK");
  struct stat status {};
  ASSERT_EQ(stat(Pse("mine").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(TolvenPse, Mistakes) {
  for (const char* arguments : {"", "nonsense", "new", "new a b -nopass", "new a -type dsa -nopass",
                                "new a -days", "new a -frob -nopass", "new a", "new a -passfile missing",
                                "show missing", "import missing x.crt", "new a -passfile empty"}) {
    m_home.Write("empty", "\n");
    EXPECT_NE(Run(arguments), 0) << arguments;
    EXPECT_FALSE(std::filesystem::exists(Pse("a"))) << arguments;
  }
}

}  // namespace
}  // namespace tolven::test
