#include "platform/net/uri.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <locale>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string built(const URI& uri) {
  std::ostringstream out;
  uri.build(out);
  return out.str();
}

bool parses(const std::string& text) {
  URI uri;
  return URI_Parser::parse(text.c_str(), uri);
}

URI parsed(const std::string& text) {
  URI uri;
  EXPECT_TRUE(URI_Parser::parse(text.c_str(), uri)) << text;
  return uri;
}

TEST(URI, empty_one_has_no_host_port_or_tls) {
  const URI uri;
  EXPECT_EQ(uri.scheme(), "");
  EXPECT_EQ(uri.host(), "");
  EXPECT_EQ(uri.host(false), "");
  EXPECT_EQ(uri.port(), 0);
  EXPECT_FALSE(uri.is_ssl());
  EXPECT_EQ(uri.path(), "");
  EXPECT_EQ(built(uri), "");
}

TEST(URI_Parser, takes_all_components_apart) {
  const URI uri = parsed("https://user:pw@example.com:8042/over/there?name=ferret&a=b#nose");
  EXPECT_EQ(uri.scheme(), "https");
  EXPECT_EQ(uri.userinfo(), "user:pw");
  EXPECT_EQ(uri.host(), "example.com");
  EXPECT_EQ(uri.port(), 8042);
  EXPECT_TRUE(uri.is_ssl());
  EXPECT_EQ(uri.path(), "/over/there");
  EXPECT_EQ(uri.query(), "name=ferret&a=b");
  EXPECT_EQ(uri.fragment(), "nose");
}

TEST(URI_Parser, takes_the_hierarchical_examples_of_rfc_3986) {
  const URI ftp = parsed("ftp://ftp.is.co.za/rfc/rfc1808.txt");
  EXPECT_EQ(ftp.scheme(), "ftp");
  EXPECT_EQ(ftp.host(), "ftp.is.co.za");
  EXPECT_EQ(ftp.path(), "/rfc/rfc1808.txt");
  EXPECT_EQ(parsed("http://www.ietf.org/rfc/rfc2396.txt").host(), "www.ietf.org");
  const URI ldap = parsed("ldap://[2001:db8::7]/c=GB?objectClass?one");
  EXPECT_EQ(ldap.host(), "2001:db8::7");
  EXPECT_EQ(ldap.path(), "/c=GB");
  EXPECT_EQ(ldap.query(), "objectClass?one");
  const URI telnet = parsed("telnet://192.0.2.16:80/");
  EXPECT_EQ(telnet.host(), "192.0.2.16");
  EXPECT_EQ(telnet.port(), 80);
  EXPECT_EQ(telnet.path(), "/");
  EXPECT_EQ(parsed("foo://example.com:8042/over/there?name=ferret#nose").port(), 8042);
}

TEST(URI_Parser, refuses_names_that_are_no_location) {
  for (const char* text :
       {"mailto:John.Doe@example.com", "news:comp.infosystems.www.servers.unix",
        "tel:+1-816-555-1212", "urn:oasis:names:specification:docbook:dtd:xml:4.1.2",
        "localhost:8080", "localhost:", "http:", "file:", "file:name"}) {
    EXPECT_FALSE(parses(text)) << text;
  }
}

TEST(URI_Parser, refuses_what_is_no_url) {
  URI uri;
  EXPECT_FALSE(URI_Parser::parse(nullptr, uri));
  for (const char* text :
       {"", " ", "nonsense", "/only/a/path", "//host/path", "example.com", "://host", ":", "://",
        "1http://host", "-s://host", "ht tp://host", "ht_tp://host", "h\xc3\xa9://host",
        " http://host", "\thttp://host", "http//host", "http:host", "http\n://host"}) {
    EXPECT_FALSE(parses(text)) << text;
  }
}

TEST(URI_Parser, leaves_the_output_alone_when_it_fails) {
  URI uri = parsed("https://user@host:1/path?q#f");
  for (const char* text : {"", "http://", "http://other:65536/", "s3://other/%zz", "s3://other/?%",
                           "s3://other/#\x01", "s3://o<ther/"}) {
    EXPECT_FALSE(URI_Parser::parse(text, uri)) << text;
    EXPECT_EQ(built(uri), "https://user@host:1/path?q#f");
  }
}

TEST(URI_Parser, http_and_ws_need_a_host) {
  for (const char* scheme : {"http", "https", "ws", "wss"}) {
    const std::string start = std::string(scheme) + ":";
    for (const char* rest :
         {"//", "///", "///path", "//:80", "//:80/path", "//user@/path", "/path", "//?q", "//#f"}) {
      EXPECT_FALSE(parses(start + rest)) << start << rest;
    }
  }
}

TEST(URI_Parser, other_schemes_may_have_no_host) {
  const URI file = parsed("file:///srv/pool");
  EXPECT_EQ(file.host(), "");
  EXPECT_EQ(file.path(), "/srv/pool");
  EXPECT_EQ(parsed("file:/srv/pool").path(), "/srv/pool");
  EXPECT_EQ(parsed("scss:/bucket").path(), "/bucket");
  EXPECT_EQ(parsed("scss:/bucket").host(), "");
  EXPECT_EQ(parsed("s3:///bucket").path(), "/bucket");
  EXPECT_EQ(parsed("s3://").path(), "");
  EXPECT_EQ(parsed("s3://:8080/bucket").port(), 8080);
}

TEST(URI_Parser, file_may_name_a_host) {
  const URI uri = parsed("file://nas1/srv");
  EXPECT_EQ(uri.host(), "nas1");
  EXPECT_EQ(uri.path(), "/srv");
  EXPECT_EQ(uri.port(), 0);
  EXPECT_FALSE(uri.is_ssl());
}

TEST(URI_Parser, scheme_becomes_lower_case_and_host_stays) {
  const URI uri = parsed("DeDuPS://Node1.Example/Pool");
  EXPECT_EQ(uri.scheme(), "dedups");
  EXPECT_TRUE(uri.is_ssl());
  EXPECT_EQ(uri.host(), "Node1.Example");
  EXPECT_EQ(built(uri), "dedups://Node1.Example/Pool");
}

TEST(URI_Parser, ports_from_0_to_65535) {
  EXPECT_EQ(parsed("http://h:0/").port(), 0);
  EXPECT_EQ(parsed("http://h:1/").port(), 1);
  EXPECT_EQ(parsed("http://h:65535/").port(), 65535);
  EXPECT_EQ(parsed("http://h:0080/").port(), 80);
  for (const char* port : {"65536", "99999999999999999999", "-1", "+1", "8a", "0x50", " 80", "80 ",
                           "8:0", "%38", "a"}) {
    EXPECT_FALSE(parses(std::string("http://h:") + port + "/")) << port;
  }
}

TEST(URI_Parser, colon_without_port_means_the_default) {
  for (const char* text : {"https://h:/p", "https://[::1]:/p"}) {
    EXPECT_EQ(parsed(text).port(), 443) << text;
  }
  EXPECT_EQ(built(parsed("https://h:/p")), "https://h/p");
  EXPECT_EQ(parsed("ws://h:").port(), 80);
}

TEST(URI_Parser, ipv6_literals) {
  struct {
    const char* in_url;
    const char* plain;
  } const cases[] = {
      {"[::1]", "::1"},
      {"[2001:DB8::7]", "2001:DB8::7"},
      {"[::ffff:192.0.2.1]", "::ffff:192.0.2.1"},
      {"[fe80::1%25eth0]", "fe80::1%eth0"},
      {"[fe80::1%eth0.100]", "fe80::1%eth0.100"},
      {"[fe80::1%2]", "fe80::1%2"},
      {"[fe80::1%252]", "fe80::1%2"},
  };
  for (const auto& c : cases) {
    const URI uri = parsed(std::string("dedups://u@") + c.in_url + ":9443/p");
    EXPECT_EQ(uri.host(), c.plain);
    EXPECT_EQ(uri.host(false), c.plain);
    EXPECT_EQ(uri.host(true), c.in_url);
    EXPECT_EQ(uri.port(), 9443);
    EXPECT_EQ(built(uri), std::string("dedups://u@") + c.in_url + ":9443/p");
  }
}

TEST(URI_Parser, refuses_bad_ipv6_literals) {
  for (const char* host :
       {"[",          "[]",       "]",           "[::1",        "::1",           "[::1]x",
        "[::1]]",     "[[::1]]",  "[127.0.0.1]", "[name]",      "[:::]",         "[12345::]",
        "[::1%]",     "[::1%25]", "[::1%25eth0", "[::1%eth 0]", "[::1%25a%25b]", "[::1%eth0%25]",
        "[v1.fe:80]", "[::1 ]",   "x[::1]"}) {
    EXPECT_FALSE(parses(std::string("http://") + host + "/")) << host;
    EXPECT_FALSE(parses(std::string("s3://") + host + "/")) << host;
  }
}

TEST(URI_Parser, hosts_of_a_registered_name) {
  for (const char* host :
       {"a", "a-b_c~d.e", "xn--bcher-kva.example", "h%20x", "1.2.3.4", "300.1", "a!$&'()*+,;=b"}) {
    EXPECT_EQ(parsed(std::string("http://") + host + "/").host(), host);
  }
  for (const char* host : {"a b", "\xc3\xbc", "a%2", "a%zz", "a<b", "a\\b", "a\"b", "a|b", "a^b",
                           "a`b", "{a}", "a\x7f", "a\x01", "a\nb"}) {
    EXPECT_FALSE(parses(std::string("http://") + host + "/")) << host;
  }
}

TEST(URI_Parser, userinfo) {
  EXPECT_EQ(parsed("http://u:p:q@h/").userinfo(), "u:p:q");
  EXPECT_EQ(parsed("http://u%40x@h/").userinfo(), "u%40x");
  EXPECT_EQ(parsed("http://h/").userinfo(), "");
  EXPECT_EQ(built(parsed("http://@h/")), "http://@h/");
  EXPECT_EQ(parsed("http://evil.example@good.example/").host(), "good.example");
  for (const char* text : {"http://a@b@h/", "http://u p@h/", "http://[u]@h/", "http://u%4@h/",
                           "http://u\\@h/", "http://\xc3\xa9@h/"}) {
    EXPECT_FALSE(parses(text)) << text;
  }
}

TEST(URI_Parser, authority_ends_at_the_first_slash_question_mark_or_hash) {
  EXPECT_EQ(parsed("http://h/@x:1").host(), "h");
  EXPECT_EQ(parsed("http://h/@x:1").path(), "/@x:1");
  EXPECT_EQ(parsed("http://h?@x:1/y").query(), "@x:1/y");
  EXPECT_EQ(parsed("http://h?@x:1/y").path(), "");
  EXPECT_EQ(parsed("http://h#@x?1/y").fragment(), "@x?1/y");
  EXPECT_EQ(parsed("http://h#@x?1/y").query(), "");
  EXPECT_FALSE(parses("http://h/#a#b"));
}

TEST(URI_Parser, path_keeps_percent_encodings_blanks_and_other_bytes) {
  for (const char* path : {"", "/", "//", "/a/../b/./c", "/a%2fb%2Fc%00", "/with blank/ and more ",
                           "/\xc3\xa4\xff\x80", "/a:b@c", "/a;b=c,d!$&'()*+", "/~user/_-."}) {
    const URI uri = parsed(std::string("dedup://h:1") + path);
    EXPECT_EQ(uri.path(), path);
    EXPECT_EQ(built(uri), std::string("dedup://h:1") + path);
  }
}

TEST(URI_Parser, refuses_what_a_path_or_query_cannot_hold) {
  for (const char* tail :
       {"/%",    "/%4",  "/%4g",  "/%%41",  "/a\tb", "/a\nb", "/a\r\nb", "/\x01",
        "/\x7f", "/<a>", "/a\"b", "/a\\b",  "/a^b",  "/a`b",  "/a|b",    "/{a}",
        "/[a]",  "/?%",  "/?%zz", "/?a\nb", "/?[",   "/#%",   "/#<",     "/#\x02"}) {
    EXPECT_FALSE(parses(std::string("dedup://h") + tail)) << tail;
  }
}

struct Pair {
  const char* plain;
  const char* tls;
};

constexpr Pair pairs[] = {
    {"http", "https"},   {"ws", "wss"},           {"dedup", "dedups"}, {"s3", "s3s"},
    {"s3v4", "s3v4s"},   {"oss", "osss"},         {"obs", "obss"},     {"kss", "ksss"},
    {"ufile", "ufiles"}, {"cos", "coss"},         {"scs", "scss"},     {"blob", "blobs"},
    {"hbr", "hbrs"},     {"lanfree", "lanfrees"},
};

class Scheme_Pairs : public testing::TestWithParam<Pair> {};

TEST_P(Scheme_Pairs, tls_form_and_default_port) {
  const std::string rest = "://h/p";
  const URI plain = parsed(GetParam().plain + rest);
  EXPECT_EQ(plain.scheme(), GetParam().plain);
  EXPECT_FALSE(plain.is_ssl());
  EXPECT_EQ(plain.port(), 80);
  const URI tls = parsed(GetParam().tls + rest);
  EXPECT_EQ(tls.scheme(), GetParam().tls);
  EXPECT_TRUE(tls.is_ssl());
  EXPECT_EQ(tls.port(), 443);
}

TEST_P(Scheme_Pairs, ssl_toggles_the_scheme_and_nothing_else) {
  const std::string rest = "://u@[fe80::1%25eth0]:8443/a b?q=%20#f";
  URI uri = parsed(GetParam().plain + rest);
  uri.ssl(false);
  EXPECT_EQ(built(uri), GetParam().plain + rest);
  uri.ssl(true);
  EXPECT_TRUE(uri.is_ssl());
  EXPECT_EQ(built(uri), GetParam().tls + rest);
  uri.ssl(true);
  EXPECT_EQ(built(uri), GetParam().tls + rest);
  uri.ssl(false);
  EXPECT_FALSE(uri.is_ssl());
  EXPECT_EQ(built(uri), GetParam().plain + rest);
}

TEST_P(Scheme_Pairs, default_port_follows_the_tls_form_and_is_not_written) {
  URI uri = parsed(std::string(GetParam().plain) + "://h/p");
  uri.ssl(true);
  EXPECT_EQ(uri.port(), 443);
  EXPECT_EQ(built(uri), std::string(GetParam().tls) + "://h/p");
}

INSTANTIATE_TEST_SUITE_P(All, Scheme_Pairs, testing::ValuesIn(pairs),
                         [](const auto& pair) { return std::string(pair.param.plain); });

TEST(URI, scheme_without_a_pair_keeps_it_whatever_ssl_is_asked_for) {
  for (const char* text : {"file:///srv", "ftp://h/x", "s://h/", "httpss://h/"}) {
    URI uri = parsed(text);
    EXPECT_FALSE(uri.is_ssl()) << text;
    EXPECT_EQ(uri.port(), 0) << text;
    uri.ssl(true);
    EXPECT_FALSE(uri.is_ssl()) << text;
    EXPECT_EQ(built(uri), text);
  }
  URI empty;
  empty.ssl(true);
  EXPECT_EQ(built(empty), "");
}

TEST(URI, build_gives_back_what_was_parsed) {
  for (const char* text :
       {"http://h", "http://h/", "http://h?", "http://h/?", "http://h/#", "http://h?#",
        "http://h:80", "https://h:443/", "http://h:0/", "file:/srv", "file:///srv", "file://",
        "file:////srv", "scss:/x", "ws://h:1", "wss://u:p@[::1]:65535/p/q?a=b&c=%41#z",
        "lanfree://h/p1/l7/zq/a b", "x+y-z.1://h"}) {
    EXPECT_EQ(built(parsed(text)), text);
  }
}

TEST(URI, host_setter_changes_the_host_alone) {
  const std::string start = "dedups://u@";
  const std::string end = ":9443/p q?a#b";
  URI uri = parsed(start + "old" + end);
  uri.host("new.example", false);
  EXPECT_EQ(uri.host(), "new.example");
  EXPECT_EQ(built(uri), start + "new.example" + end);
  uri.host("2001:db8::7", false);
  EXPECT_EQ(uri.host(), "2001:db8::7");
  EXPECT_EQ(built(uri), start + "[2001:db8::7]" + end);
  uri.host("[::1]", false);
  EXPECT_EQ(uri.host(), "::1");
  EXPECT_EQ(built(uri), start + "[::1]" + end);
  uri.host("fe80::1%eth0", false);
  EXPECT_EQ(uri.host(), "fe80::1%eth0");
  EXPECT_EQ(built(uri), start + "[fe80::1%25eth0]" + end);
  uri.host("fe80::1%25", false);  // interface number 25
  EXPECT_EQ(uri.host(), "fe80::1%25");
  EXPECT_EQ(built(uri), start + "[fe80::1%2525]" + end);
  uri.host("[fe80::1%25eth1]", true);
  EXPECT_EQ(uri.host(), "fe80::1%eth1");
  EXPECT_EQ(built(uri), start + "[fe80::1%25eth1]" + end);
  uri.host("10.0.0.5", false);
  EXPECT_EQ(built(uri), start + "10.0.0.5" + end);
}

TEST(URI, host_setter_cannot_change_the_rest_of_the_url) {
  struct {
    const char* host;
    bool as_in_url;
    const char* written;
  } const cases[] = {
      {"evil/path", false, "evil%2Fpath"},
      {"evil?q", false, "evil%3Fq"},
      {"evil#f", false, "evil%23f"},
      {"user@evil", false, "user%40evil"},
      {"evil:1", false, "evil%3A1"},
      {"[evil", false, "%5Bevil"},
      {"::1]", false, "%3A%3A1%5D"},
      {"a b\n", false, "a%20b%0A"},
      {"b\xc3\xbc", false, "b%C3%BC"},
      {"h%20x", false, "h%2520x"},
      {"h%20x", true, "h%20x"},
      {"h%2", true, "h%252"},
      {"a/b", true, "a%2Fb"},
  };
  for (const auto& c : cases) {
    URI uri = parsed("https://h:1/p");
    uri.host(c.host, c.as_in_url);
    EXPECT_EQ(built(uri), std::string("https://") + c.written + ":1/p");
    EXPECT_EQ(parsed(built(uri)).path(), "/p");
  }
  URI uri = parsed("https://h:1/p");
  uri.host(std::string("::1\0x", 5), false);
  EXPECT_EQ(built(uri), "https://%3A%3A1%00x:1/p");
}

TEST(URI, port_setter_changes_the_port_alone) {
  URI uri = parsed("https://u@h/p?q");
  uri.port(8443);
  EXPECT_EQ(uri.port(), 8443);
  EXPECT_EQ(built(uri), "https://u@h:8443/p?q");
  uri.port(443);
  EXPECT_EQ(built(uri), "https://u@h:443/p?q");
  uri.port(65535);
  EXPECT_EQ(built(uri), "https://u@h:65535/p?q");
  uri.port(0);
  EXPECT_EQ(uri.port(), 0);
  EXPECT_EQ(built(uri), "https://u@h:0/p?q");
}

TEST(URI, setting_host_or_port_of_a_url_without_them_gives_it_an_authority) {
  URI uri = parsed("file:/srv");
  uri.host("nas", false);
  EXPECT_EQ(built(uri), "file://nas/srv");
  uri = parsed("scss:/bucket");
  uri.port(9);
  EXPECT_EQ(built(uri), "scss://:9/bucket");
}

TEST(URI, path_setter_changes_the_path_alone) {
  URI uri = parsed("ws://h:1/dedup/pool");
  uri.path("", true);
  EXPECT_EQ(uri.path(), "");
  EXPECT_EQ(built(uri), "ws://h:1");
  uri.path("/a b/%41", true);
  EXPECT_EQ(built(uri), "ws://h:1/a b/%41");
  uri.path("a%41", false);
  EXPECT_EQ(uri.path(), "/a%2541");
  EXPECT_EQ(built(uri), "ws://h:1/a%2541");
  uri.path("/q?x#y%4[\n\xc3", true);
  EXPECT_EQ(built(uri), "ws://h:1/q%3Fx%23y%254%5B%0A\xc3");
  uri = parsed("https://u@h:1/p?q#f");
  uri.path("/n", true);
  EXPECT_EQ(built(uri), "https://u@h:1/n?q#f");
}

TEST(URI, path_without_authority_never_reads_as_one) {
  URI uri = parsed("file:/srv");
  uri.path("//evil/x", true);
  EXPECT_EQ(built(uri), "file:////evil/x");
  EXPECT_EQ(parsed(built(uri)).host(), "");
  EXPECT_EQ(parsed(built(uri)).path(), "//evil/x");
  uri = parsed("file:/srv");
  uri.path("", true);
  EXPECT_EQ(built(uri), "file://");
  EXPECT_EQ(parsed(built(uri)).path(), "");
}

struct Grouping : std::numpunct<char> {
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(URI, build_ignores_the_streams_settings) {
  std::ostringstream out;
  out.imbue(std::locale(std::locale::classic(), new Grouping));
  out << std::hex << std::showbase << std::setw(40) << std::setfill('*');
  parsed("http://h:65535/").build(out);
  EXPECT_EQ(out.str(), "http://h:65535/");
}

TEST(URI, embedded_port_number_is_read_without_locale) {
  const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Grouping));
  EXPECT_EQ(built(parsed("http://h:65535/")), "http://h:65535/");
  std::locale::global(before);
}

TEST(URI, copies_are_independent) {
  URI a = parsed("http://h/p");
  URI b = a;
  b.host("other", false);
  b.ssl(true);
  EXPECT_EQ(built(a), "http://h/p");
  EXPECT_EQ(built(b), "https://other/p");
}

TEST(URI_Parser, many_threads_at_once) {
  std::vector<std::thread> threads(4);
  for (std::thread& thread : threads) {
    thread = std::thread([] {
      const std::string text = "dedups://node1:9443/pool";
      for (int i = 0; i < 2000; ++i) {
        URI uri;
        ASSERT_TRUE(URI_Parser::parse(text.c_str(), uri));
        ASSERT_EQ(built(uri), text);
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
}

TEST(URI_Parser, long_texts) {
  const std::string path = "/" + std::string(1 << 20, 'x');
  const URI uri = parsed("http://h" + path);
  EXPECT_EQ(uri.path(), path);
  EXPECT_TRUE(parses("s3://" + std::string(1 << 20, 'h')));
  EXPECT_FALSE(parses("s3://" + std::string(1 << 20, '[')));
  EXPECT_FALSE(parses(std::string(1 << 20, 'a')));
}

}  // namespace
