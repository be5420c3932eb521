# AddressSanitizer and UndefinedBehaviorSanitizer, applied per target.
add_library(tenebrix_sanitizers INTERFACE)
if(TENEBRIX_SANITIZE)
  set(_tenebrix_san_flags -fsanitize=address,undefined -fno-sanitize-recover=all
      -fno-omit-frame-pointer)
  target_compile_options(tenebrix_sanitizers INTERFACE ${_tenebrix_san_flags})
  target_link_options(tenebrix_sanitizers INTERFACE ${_tenebrix_san_flags})
endif()
