// Another client's idea of two well-known libraries: whoever gets here has met the wrong one.
extern "C" {

int otherCalls = 0;

#define OTHER(name) \
  void* name() {    \
    ++otherCalls;   \
    return nullptr; \
  }

OTHER(curl_global_init)
OTHER(curl_easy_init)
OTHER(curl_multi_init)
OTHER(curl_multi_poll)
OTHER(curl_url)
OTHER(xmlInitParser)
OTHER(xmlNewParserCtxt)
OTHER(xmlNewDoc)
OTHER(xmlSaveToBuffer)
}
