# Makes one page of report.html, report.css and report.js, and a source file that holds it.
#
#     cmake -D OUT=FILE.cpp -P Embed.cmake
#
# The page allows itself exactly this style and this script, by their hashes.

set( folder ${CMAKE_CURRENT_LIST_DIR} )
file( READ ${folder}/report.html page )
file( READ ${folder}/report.css style )
file( READ ${folder}/report.js script )

# A hash as a Content-Security-Policy spells it: base64, three bytes a time.
function( hash_source text out )
    string( SHA256 hex "${text}" )
    set( digits "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/" )
    set( base64 "" )
    foreach( start RANGE 0 60 6 )
        string( SUBSTRING "${hex}0000" ${start} 6 group )
        math( EXPR group "0x${group}" )
        foreach( shift 18 12 6 0 )
            math( EXPR digit "(${group} >> ${shift}) & 63" )
            string( SUBSTRING ${digits} ${digit} 1 digit )
            string( APPEND base64 ${digit} )
        endforeach()
    endforeach()
    # 32 bytes are 43 digits and one to fill up.
    string( SUBSTRING ${base64} 0 43 base64 )
    set( ${out} "'sha256-${base64}='" PARENT_SCOPE )
endfunction()

hash_source( "${style}" style_source )
hash_source( "${script}" script_source )
string( REPLACE "@STYLE_SOURCE@" "${style_source}" page "${page}" )
string( REPLACE "@SCRIPT_SOURCE@" "${script_source}" page "${page}" )
string( REPLACE "@STYLE@" "${style}" page "${page}" )
string( REPLACE "@SCRIPT@" "${script}" page "${page}" )

string( HEX "${page}" bytes )
string( REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}" )
file( WRITE ${OUT} "#include \"tools/show/ReportTemplate.h\"

namespace Tool {

std::string_view reportTemplate() {
    static constexpr unsigned char bytes[] = { ${bytes} };
    return { reinterpret_cast<const char *>( bytes ), sizeof bytes };
}

} // namespace Tool
" )
