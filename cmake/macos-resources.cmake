# tessarin_compiled_resources(): a target TessarinResources that has Xcode's tools compile the agent's storyboard and images. Only on a
# Mac; elsewhere, where bundles are made to be checked and cannot run, they are put in as they are.
function(tessarin_compiled_resources)
    set(resources ${PROJECT_SOURCE_DIR}/macos/TessarinUserAgent/resources)
    set(compiled ${PROJECT_BINARY_DIR}/macos-resources)
    find_program(XCRUN xcrun REQUIRED)
    add_custom_command(
        OUTPUT ${compiled}/Main.storyboardc/Info.plist
        COMMAND ${XCRUN} ibtool --errors --warnings --notices --module TessarinUserAgent
                --minimum-deployment-target ${TESSARIN_MACOS_DEPLOYMENT_TARGET} --target-device mac
                --compile ${compiled}/Main.storyboardc ${resources}/Base.lproj/Main.storyboard
        DEPENDS ${resources}/Base.lproj/Main.storyboard VERBATIM)
    file(GLOB_RECURSE asset_files CONFIGURE_DEPENDS ${resources}/Assets.xcassets/*)
    add_custom_command(
        OUTPUT ${compiled}/assets/Assets.car
        COMMAND ${CMAKE_COMMAND} -E make_directory ${compiled}/assets
        COMMAND ${XCRUN} actool --errors --warnings --notices --platform macosx
                --minimum-deployment-target ${TESSARIN_MACOS_DEPLOYMENT_TARGET} --compile ${compiled}/assets
                ${resources}/Assets.xcassets
        DEPENDS ${asset_files} VERBATIM)
    add_custom_target(TessarinResources DEPENDS ${compiled}/Main.storyboardc/Info.plist ${compiled}/assets/Assets.car)
endfunction()

# tessarin_bundle_resources(TARGET): puts them into the target's bundle when it is linked.
function(tessarin_bundle_resources target)
    set(resources ${PROJECT_SOURCE_DIR}/macos/TessarinUserAgent/resources)
    set(compiled ${PROJECT_BINARY_DIR}/macos-resources)
    set(content $<TARGET_BUNDLE_CONTENT_DIR:${target}>/Resources)
    set(icon COMMAND ${CMAKE_COMMAND} -E copy ${resources}/TessarinUserAgent.icns ${content}/TessarinUserAgent.icns)
    if(CMAKE_HOST_APPLE)
        add_dependencies(${target} TessarinResources)
        add_custom_command(TARGET ${target} POST_BUILD
            COMMAND ${CMAKE_COMMAND} -E copy_directory ${compiled}/Main.storyboardc ${content}/Base.lproj/Main.storyboardc
            COMMAND ${CMAKE_COMMAND} -E copy ${compiled}/assets/Assets.car ${content}/Assets.car
            ${icon} VERBATIM)
    else()
        add_custom_command(TARGET ${target} POST_BUILD
            COMMAND ${CMAKE_COMMAND} -E copy_directory ${resources}/Assets.xcassets ${content}/Assets.xcassets
            COMMAND ${CMAKE_COMMAND} -E make_directory ${content}/Base.lproj
            COMMAND ${CMAKE_COMMAND} -E copy ${resources}/Base.lproj/Main.storyboard ${content}/Base.lproj/Main.storyboard
            ${icon} VERBATIM)
    endif()
endfunction()
