# The networks that the library embeds: one line each, as NAME.EXTENSION. pb = TensorFlow GraphDef, caffemodel = Caffe
# weights, prototxt = Caffe network text. The build takes the files from VELDAN_NETWORK_DIR.
set(VELDAN_NETWORKS
    VELDAN_V5_1_0_FaceDetectP.pb
    VELDAN_V5_1_0_FaceDetectR.pb
    VELDAN_V5_1_0_FaceDetectO.pb
    VELDAN_V5_0_0_FaceQuality.pb
    VELDAN_V5_0_0_LiveDetect_RGB.pb
    VELDAN_V5_1_0_LiveDetect_NIR.pb
    VELDAN_V5_1_0_FaceMaskDetect.pb
    VELDAN_V5_1_0_FaceMaskAlign.pb
    VELDAN_V5_0_0_FaceRecog_Model.caffemodel
    VELDAN_V5_0_0_FaceRecog_Prototxt.prototxt
    VELDAN_V5_2_0_FaceMaskRecog_Model.caffemodel
    VELDAN_V5_2_0_FaceMaskRecog_Prototxt.prototxt
)

# veldan_embed_networks(target folder networks...) adds one generated unit per network to the target. A unit is made anew
# only when its network file, or the tool, changed.
function(veldan_embed_networks target folder)
    set(out ${CMAKE_CURRENT_BINARY_DIR}/${target}_networks)
    file(MAKE_DIRECTORY ${out})
    set(units)
    foreach(file IN LISTS ARGN)
        # The last dot starts the extension; what kind of network it is only matters to the engine that loads it.
        get_filename_component(name ${file} NAME_WLE)
        add_custom_command(
            OUTPUT ${out}/${name}.cpp
            COMMAND veldan_embed_network ${name} ${folder}/${file} ${out}/${name}.cpp
            DEPENDS veldan_embed_network ${folder}/${file}
            COMMENT "Embedding ${file}"
            VERBATIM)
        list(APPEND units ${out}/${name}.cpp)
    endforeach()
    # The target may belong to another folder, which knows nothing of the commands here: it waits for them as a whole.
    add_custom_target(${target}_networks DEPENDS ${units})
    set_source_files_properties(${units} TARGET_DIRECTORY ${target} PROPERTIES GENERATED TRUE)
    target_sources(${target} PRIVATE ${units})
    add_dependencies(${target} ${target}_networks)
endfunction()
