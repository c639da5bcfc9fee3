// Another client's idea of a well-known library: whoever gets here has met the wrong one.
extern "C" {

int otherCalls = 0;

#define OTHER(name) \
  void* name() {    \
    ++otherCalls;   \
    return nullptr; \
  }

OTHER(xmlInitParser)
OTHER(xmlNewParserCtxt)
OTHER(xmlNewDoc)
OTHER(xmlSaveToBuffer)
}
