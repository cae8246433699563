# cmake -DINPUT=file -DOUTPUT=file.cpp -DNAME=symbol -P EmbedFile.cmake: the file's bytes as an array NAME of NAMESize bytes.
file(READ ${INPUT} bytes HEX)
string(REGEX REPLACE "(................................................................)" "\\1\n" bytes "${bytes}")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
file(WRITE ${OUTPUT} "#include <cstddef>

extern \"C\" {
extern const unsigned char ${NAME}[];
extern const size_t ${NAME}Size;
const unsigned char ${NAME}[] = {
${bytes}
};
const size_t ${NAME}Size = sizeof ${NAME};
}
")
