include $(BR2_EXTERNAL_VYXSAVERESTORE_PATH)/vyxsaverestore.mk
