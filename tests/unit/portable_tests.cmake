# The tests that need no database: they run on the bench of the gateway's build, too.
unit_test(FTM_Task_test)
# std::size_t, a part of the name, is another type with 32 bits.
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
  set(GET_CLIENT_CONNECTION _Z19GetClientConnectionPKvm11sockaddr_in)
else()
  set(GET_CLIENT_CONNECTION _Z19GetClientConnectionPKvj11sockaddr_in)
endif()
target_compile_definitions(FTM_Task_test PRIVATE GET_CLIENT_CONNECTION="${GET_CLIENT_CONNECTION}")
wrap(FTM_Task_test pthread_create socket bind recvfrom calloc board_cond_timedwait
  cfg_startSession cfg_setListen cfg_listenSubject cfg_sendMsg cl_cfg_service
  _Z17FtmClear4PortStatv ${GET_CLIENT_CONNECTION}
)

unit_test(TFTPops_test)

unit_test(TFTPserver_test)
wrap(TFTPserver_test calloc board_cond_timedwait
  _Z9getFtmXmlPKcPP13ST_TFTP_ERROR
  _Z9putFtmXmlPcPKc
  _Z14DISC_dataFirstP20ST_DISC_CHAN_ATTRIBS
  _Z12DISC_dataAsmP20ST_DISC_CHAN_ATTRIBS
  _Z14DISC_dataFinisP20ST_DISC_CHAN_ATTRIBS
  _Z13DISC_hexFirstP20ST_DISC_CHAN_ATTRIBS
  _Z11DISC_hexAsmP20ST_DISC_CHAN_ATTRIBS
  _Z13DISC_hexFinisP20ST_DISC_CHAN_ATTRIBS
  _Z17DISC_burnHexImagev
  _Z6ReBooti
  _Z13WDOGPetTheDogv
)

unit_test(xml_parser_test)

unit_test(xml_serializer_test)

unit_test(xml_tree_test)
wrap(xml_tree_test malloc calloc realloc free board_syslog)

unit_test(gateway_clock_test)
unit_test(platform_records_test)
unit_test(service_records_test)
