# Builds the studio's WebAssembly: the module, its host services, inspect and the libraries that it needs, from Debian's
# source packages. Called by script/studio, which fetches these.
#   make -f studio/wasm.mk OUT=build/studio SOURCES=build/debian-source
FMT := $(SOURCES)/fmtlib
JSONCPP := $(SOURCES)/libjsoncpp
RE2 := $(SOURCES)/re2
UTF8PROC := $(SOURCES)/utf8proc
LIBMD := $(SOURCES)/libmd
OBJECTS := $(OUT)/wasm
RE2_TABLES := $(OBJECTS)/re2/perl_groups.cc $(OBJECTS)/re2/unicode_groups.cc $(OBJECTS)/re2/unicode_casefold.cc

OWN := $(addprefix inspect/,$(shell grep -oE '[a-z]+/[A-Za-z0-9]+\.cpp' inspect/CMakeLists.txt)) $(wildcard host/*.cpp) \
  Protocol/AllVersions/v4/ProtocolInternal_v4.0.cpp $(wildcard studio/*.cpp)
RE2_PARTS := bitstate compile dfa filtered_re2 mimics_pcre nfa onepass parse prefilter prefilter_tree prog re2 \
  regexp set simplify stringpiece tostring
LIBRARIES := $(FMT)/src/format.cc $(JSONCPP)/src/lib_json/json_reader.cpp $(JSONCPP)/src/lib_json/json_value.cpp \
  $(JSONCPP)/src/lib_json/json_writer.cpp $(addprefix $(RE2)/re2/,$(addsuffix .cc,$(RE2_PARTS))) \
  $(RE2)/util/rune.cc $(RE2)/util/strutil.cc
C_LIBRARIES := $(UTF8PROC)/utf8proc.c $(LIBMD)/src/sha2.c $(LIBMD)/src/sha256hl.c

OWN_OBJECTS := $(OWN:%=$(OBJECTS)/%.o)
LIBRARY_OBJECTS := $(LIBRARIES:$(SOURCES)/%=$(OBJECTS)/%.o) $(RE2_TABLES:%=%.o)
C_OBJECTS := $(C_LIBRARIES:$(SOURCES)/%=$(OBJECTS)/%.o)

COMMON := -O3 -fwasm-exceptions -fvisibility=hidden -ffile-prefix-map=$(CURDIR)=. -DNDEBUG
# The machine's own include folder would hide emscripten's headers, so the headers of nlohmann-json, which are the same
# for every machine, are taken from a link to them.
INCLUDES := -I. -isystem $(OBJECTS)/include -isystem $(FMT)/include -isystem $(JSONCPP)/include -isystem $(RE2) \
  -isystem $(UTF8PROC) -isystem $(LIBMD)/include
CPP := em++ -std=c++17 $(COMMON) $(INCLUDES) -DUTF8PROC_STATIC

$(OUT)/studio.wasm: $(OWN_OBJECTS) $(LIBRARY_OBJECTS) $(C_OBJECTS)
	em++ -O3 -fwasm-exceptions $^ -sSTANDALONE_WASM --no-entry -sALLOW_MEMORY_GROWTH=1 -sMAXIMUM_MEMORY=2GB \
	  -sTOTAL_STACK=2MB -sEXPORTED_FUNCTIONS=_studio_ask,_studio_size,_malloc,_free -o $@

$(OWN_OBJECTS): $(OBJECTS)/%.o: % | $(OBJECTS)/include
	@mkdir -p $(@D)
	$(CPP) -Wall -MMD -c $< -o $@

$(filter-out $(RE2_TABLES:%=%.o),$(LIBRARY_OBJECTS)): $(OBJECTS)/%.o: $(SOURCES)/%
	@mkdir -p $(@D)
	$(CPP) -c $< -o $@

$(RE2_TABLES:%=%.o): %.o: %
	$(CPP) -c $< -o $@

# Debian's package leaves out what these programs make of the Unicode data. They write to the standard output.
$(OBJECTS)/re2/perl_groups.cc:
	@mkdir -p $(@D)
	cd $(RE2)/re2 && perl make_perl_groups.pl >$(abspath $@)

$(OBJECTS)/re2/unicode_%.cc:
	@mkdir -p $(@D)
	cd $(RE2)/re2 && /usr/bin/python3 make_unicode_$*.py >$(abspath $@)

$(C_OBJECTS): $(OBJECTS)/%.o: $(SOURCES)/% | $(OBJECTS)/include
	@mkdir -p $(@D)
	emcc $(COMMON) -DHAVE_UNISTD_H -DUTF8PROC_STATIC -I$(LIBMD)/include -I$(OBJECTS)/include -c $< -o $@

# libmd includes a config.h, of which these files need nothing.
$(OBJECTS)/include:
	mkdir -p $@
	ln -sfn /usr/include/nlohmann $@
	touch $@/config.h

-include $(OWN_OBJECTS:.o=.d)
